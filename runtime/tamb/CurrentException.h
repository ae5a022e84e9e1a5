#pragma once

#include <string>

namespace tamb {

/// What the exception that is being handled says of itself, for a log line. To be called within a catch
/// block.
std::string CurrentExceptionText();

}  // namespace tamb
