#pragma once

#include <cstdint>

namespace qor::multiprocess_communication {

/// The version of the exchange between a front end that submits an engine and the service that starts it.
/// Both have to have the same one.
inline constexpr std::int32_t submissionVersion = 2;

}  // namespace qor::multiprocess_communication
