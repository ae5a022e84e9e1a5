#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "bench/compare/Case.h"

namespace qor::bench {

/// All runs of the comparison. `scale` makes each run shorter or longer.
std::vector<Case> plan(double scale);

/// The name for people and for the option --only: "commands in lists of 100, 5 parameters, ours, ipc, free".
std::string nameOf(const Case& run);

}  // namespace qor::bench
