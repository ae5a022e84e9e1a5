#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

namespace qor::bench {

/// Adds one result to each of the runs, which have a name, a case and results. Runs of the same work take
/// turns. Reports the progress on the standard error stream, under that title. Throws std::runtime_error,
/// with the name of the run, if one fails.
void measureRound(nlohmann::json& runs, const std::string& title);

/// Adds as many results for each number of remote engines as there are rounds, at most three, because they
/// hardly differ.
void measureRemoteEngines(nlohmann::json& all, std::size_t rounds);

}  // namespace qor::bench
