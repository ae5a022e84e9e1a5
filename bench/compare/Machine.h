#pragma once

#include <nlohmann/json.hpp>

namespace qor::bench {

/// What results are comparable by: the machine, the libraries' versions and this build.
nlohmann::json machine();

}  // namespace qor::bench
