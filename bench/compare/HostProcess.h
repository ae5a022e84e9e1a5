#pragma once

#include <chrono>
#include <string>

namespace qor::bench {

constexpr const char* hostRole = "--host-process";
/// More than the host has with its engine.
constexpr std::chrono::seconds hostPatience{300};

/// Measures a case in this process, which is the host, and a new one, the engine; without the boundary in
/// this process alone. Gives a sign at the other end of the line once everything has been set up and warmed
/// up; waits for a sign before each turn and gives one behind it; gives the Result after one more sign.
/// Confines this process to the cores that the case wants, hence comes before any other thread is started.
void runHostProcess(const std::string& caseText);

}  // namespace qor::bench
