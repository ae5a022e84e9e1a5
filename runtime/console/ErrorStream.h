#pragma once

#include <string_view>

namespace qor::console {

/// Writes a line to the standard error stream without waiting for its reader, so that a paused reader cannot
/// block the program. Lines that the stream does not accept at once are dropped; their count is written as
/// soon as it accepts lines again. Control characters are escaped as by tamb::EscapedText. Any thread.
void writeErrorLine(std::string_view line);

/// Writes the count of the dropped lines, if any and if the stream accepts it. For the end of a program, when
/// no further line may follow. Any thread; does not wait.
void writeDroppedLines();

/// Writes to a stream of this process without waiting for its reader, also when other processes share the
/// stream. False when the stream did not accept the whole text.
bool writeWithoutWaiting(int descriptor, std::string_view text);

}  // namespace qor::console
