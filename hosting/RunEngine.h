#pragma once

#include <functional>
#include <string>

#include "engines/sdk/IEngineFactory.h"
#include "hosting/EngineOptions.h"
#include "hosting/EngineToRun.h"

namespace CLI {
class App;
}

namespace qor::hosting {

/// The main function of a program that is an engine in a process of its own:
///
///   int main(int argumentCount, char** arguments) {
///     return qor::hosting::runEngine(argumentCount, arguments, qor::engines::EngineFactory<MyEngine>());
///   }
///
/// The program gets the options of tamb-engine (see its --help). The engine runs in a child process; this one
/// supervises it: explains its death to the host within a second, ends it when it does not stop, passes what
/// it prints on to the log, and removes its socket files. Every wait is bounded, see Supervisor.h. A program
/// that a supervisor has started already, as an engine program, serves in its own process instead.
///
/// To be called first in main, before there are threads or sockets. Does not throw. Returns the program's
/// exit code: 0 after the host has disconnected, 1 when the engine did not become ready, 2 after wrong usage,
/// 3 when the engine's process died or had to be killed.
int runEngine(int argumentCount, char** arguments, const engines::IEngineFactory& factory);

/// A program that can run several engines.
struct EngineRunner {
  std::string name;
  /// For its help.
  std::string summary;
  /// For its help, behind the options; may be empty.
  std::string examples = {};
  /// Adds options of its own; may be empty.
  std::function<void(CLI::App&)> addOptions = {};
  /// Which engine to run. Throws std::exception, whose text is reported.
  std::function<EngineToRun(const EngineOptions&)> choose;
};

/// As above, for such a program.
int runEngine(int argumentCount, char** arguments, const EngineRunner& runner);

}  // namespace qor::hosting
