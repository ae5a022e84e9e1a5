#pragma once

#include <string>

namespace tamb {

/// The text of the exception that is being handled, for a log line. Call it within a catch block.
std::string CurrentExceptionText();

}  // namespace tamb
