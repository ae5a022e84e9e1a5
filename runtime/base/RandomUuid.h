#pragma once

#include <string>

namespace qor::base {

/// A new random UUID of version 4: 36 characters in lower case. Costs a system call for every 16th UUID of a
/// thread. Any thread, also in a forked child. Throws std::system_error if the system provides no random
/// bytes.
std::string randomUuid();

}  // namespace qor::base
