#pragma once

#include <nlohmann/json.hpp>

namespace qor::bench {

/// The conditions of comparable results: the machine, the libraries' versions and this build.
nlohmann::json machine();

}  // namespace qor::bench
