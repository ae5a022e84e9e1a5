#pragma once

#include "hosting/EngineOptions.h"
#include "hosting/EngineReporter.h"
#include "hosting/EngineToRun.h"

namespace qor::hosting {

/// Names the supervisor's process in the environment of an engine program: one that has its own supervisor
/// built in leaves it away then.
inline constexpr const char* supervisorVariable = "TAMB_ENGINE_SUPERVISOR";
/// What stands in the brackets of log lines that the supervisor passes on as they are.
inline constexpr const char* logOriginVariable = "TAMB_ENGINE_LOG_ORIGIN";

/// Whether the parent of this process supervises it as an engine program. Any thread.
bool isSupervisedProgram();

/// In the supervisor's child: becomes that program. It has the description on its standard input, reports on
/// descriptor 3 and has no others but the standard streams. Returns an exit code only when the program cannot
/// be started, which has been reported.
int becomeProgram(const EngineProgram& program, EngineOptions options, const EngineReporter& parent);

}  // namespace qor::hosting
