#pragma once

#include "engines/sdk/IEngineFactory.h"
#include "hosting/EngineOptions.h"
#include "hosting/EngineReporter.h"
#include "hosting/EngineToRun.h"
#include "runtime/processes/SocketFiles.h"

namespace qor::hosting {

/// The life of an engine's process, to its exit code. Makes the engine, connects the three channels to it,
/// and serves until its host has disconnected or has been silent for 10 s; then stops the engine. Reports all
/// of that, also failures: within 5 s that the engine is ready, or why it is not.
///
/// A run that its host has not asked to stop is abandoned then: it leaves nothing of its output, and
/// publishes "Failed". So is a run whose process is ended by SIGTERM, SIGINT or SIGHUP, except that the death
/// of the process is the report. A run that throws has that published as "Failed". Waits for the engine's run
/// to end, however long that takes: the supervisor bounds that.
///
/// To be called by a process that has one thread. Reports come from several threads.
int runEngineChild(const EngineOptions& options, const EngineLoader& loader, const EngineReporter& parent);

/// Removes the socket files that nobody listens on, those of the directory in any case if it is ours, and the
/// directory if it is empty.
void removeFilesOf(const EngineOptions& options, processes::BoundBy boundBy);

}  // namespace qor::hosting
