#pragma once

#include <string>

#include "bench/compare/Case.h"

namespace qor::bench {

/// Runs one case in this process, which is the host, and a new one, the engine; without the boundary in this
/// process alone. Confines this process to the cores that the case wants, hence before any other thread is
/// started. Throws std::runtime_error when nothing comes for a minute.
Result runCase(const Case& run);

/// The new process: its second argument tells it what to do.
constexpr const char* engineArgument = "--be-the-engine";
void beTheEngine(const std::string& task);

}  // namespace qor::bench
