#pragma once

#include <string_view>

namespace qor::programs {

/// Writes a line to the standard error stream, and does not wait for its reader: what the stream does not
/// take at once is dropped, and counted in a line of its own as soon as it takes some again. A reader that
/// stands still must not stop a program that others wait for. Any thread.
void writeErrorLine(std::string_view line);

}  // namespace qor::programs
