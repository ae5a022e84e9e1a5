#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "bench/compare/Case.h"

namespace qor::bench {

/// Everything that is compared. `scale` makes each run shorter or longer.
std::vector<Case> plan(double scale);

/// As people and the option --only name it: "commands in lists of 100, 5 parameters, ours, ipc, free".
std::string nameOf(const Case& run);

}  // namespace qor::bench
