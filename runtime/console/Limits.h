#pragma once

#include <string>

namespace qor::console {

/// The text of a failure, completed by the limit of this process that it has met, when it looks like one: of
/// descriptors, memory or processes. Libraries pass on what the system says of it, such as "Resource
/// temporarily unavailable", which tells nobody what to change. A text that names a limit stays as it is. Any
/// thread.
std::string withLimit(std::string failure);

}  // namespace qor::console
