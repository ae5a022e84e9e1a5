#pragma once

#include <string>

namespace qor::engines {

/// From now on, FFmpeg's log lines of this process go to the framework's log: warnings and errors at their
/// levels, what is less as debug records, FFmpeg's own debug lines nowhere. Any thread, any number of times.
void sendFfmpegLogToFramework();

/// The first error line that FFmpeg wrote on this thread since the line was forgotten, empty when it wrote
/// none. The first one names the cause; FFmpeg's callers only repeat that something failed. An engine runs
/// FFmpeg without threads of its own, hence the line belongs to the call before.
std::string firstFfmpegErrorLine();
void forgetFfmpegErrorLine();

}  // namespace qor::engines
