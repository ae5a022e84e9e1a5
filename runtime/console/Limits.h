#pragma once

#include <string>

namespace qor::console {

/// Appends the limit of this process that a failure has probably reached: descriptors, memory or processes.
/// The system's own text, such as "Resource temporarily unavailable", does not name the setting to change. A
/// text that already names a limit is returned unchanged. Any thread.
std::string withLimit(std::string failure);

}  // namespace qor::console
