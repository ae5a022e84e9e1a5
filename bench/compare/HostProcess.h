#pragma once

#include <chrono>
#include <string>

namespace qor::bench {

constexpr const char* hostRole = "--host-process";
/// Longer than the time-outs between the host and its engine.
constexpr std::chrono::seconds hostPatience{300};

/// Measures a case in this process, which is the host, and a new one, the engine; without the process
/// boundary only in this process. Sends a signal at the other end of the line when everything is set up and
/// warmed up; waits for a signal before each turn and sends one after it; sends the Result after one more
/// signal. Confines this process to the cores of the case; call it before any other thread is started.
void runHostProcess(const std::string& caseText);

}  // namespace qor::bench
