#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

namespace qor::bench {

/// One more result for each of the runs, which have a name, a case and results. Runs that do the same work
/// take turns. Tells on standard error, under that title, how far it is. Throws std::runtime_error, which
/// names the run, when one fails.
void measureRound(nlohmann::json& runs, const std::string& title);

/// As many results for each number of remote engines as there are rounds, three at most: they hardly differ.
void measureRemoteEngines(nlohmann::json& all, std::size_t rounds);

}  // namespace qor::bench
