#pragma once

#include <string>

namespace qor::programs {

/// The line by which an engine's program reports its start: empty when it says that the engine is ready,
/// otherwise one readable line about why it is not.
std::string readyLineFailure(const std::string& line);

}  // namespace qor::programs
