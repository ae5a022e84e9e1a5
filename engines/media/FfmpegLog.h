#pragma once

#include <string>

namespace qor::engines {

/// Redirects FFmpeg's log lines of this process to the framework's log: warnings and errors keep their
/// levels, lower levels become debug records, and FFmpeg's own debug lines are discarded. Any thread, any
/// number of times.
void sendFfmpegLogToFramework();

/// The first error line that FFmpeg wrote on this thread since the last forgetFfmpegErrorLine(); empty if
/// it wrote none. The first line names the cause; later ones only report that a caller failed. An engine runs
/// FFmpeg without threads, so the line belongs to the previous call.
std::string firstFfmpegErrorLine();
void forgetFfmpegErrorLine();

}  // namespace qor::engines
