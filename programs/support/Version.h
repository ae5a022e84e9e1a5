#pragma once

namespace qor::programs {

/// The project's version.
inline constexpr const char* version = QOR_VERSION;

}  // namespace qor::programs
