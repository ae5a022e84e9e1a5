#pragma once

#include <string_view>

namespace qor::console {

/// Writes a line to the standard error stream, and does not wait for its reader: lines that the stream does
/// not take at once are dropped, and counted in a line of its own as soon as it takes some again. A reader
/// that stands still must not stop a program that others wait for. What a terminal would obey is escaped, as
/// tamb::EscapedText spells it. Any thread.
void writeErrorLine(std::string_view line);

/// Writes the count of the lines dropped so far, if there are any and the stream takes it. For the end of a
/// program, when no further line may come. Any thread; does not wait.
void writeDroppedLines();

/// Writes to a stream of this process without waiting for its reader, also when other processes write to the
/// same one. False when the stream did not take all of it.
bool writeWithoutWaiting(int descriptor, std::string_view text);

}  // namespace qor::console
