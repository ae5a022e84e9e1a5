#include "hosting/RunEngine.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>
#include <variant>

#include "hosting/EngineCommandLine.h"
#include "hosting/EngineProcess.h"
#include "hosting/EngineProgram.h"
#include "hosting/EngineReport.h"
#include "hosting/Supervisor.h"
#include "qor/utils/Log.h"
#include "runtime/base/FileDescriptor.h"
#include "runtime/console/CommandLine.h"
#include "runtime/console/ErrorStream.h"
#include "runtime/console/Limits.h"
#include "runtime/console/LogLine.h"
#include "runtime/console/TerminalLog.h"

namespace qor::hosting {

namespace {

using socket::SocketEndpoint;

constexpr const char* exitCodes = R"(
Exit codes:
  0  the host disconnected, and the engine was stopped
  1  the engine could not be created, was not ready in time, or was ended before it was ready
  2  wrong usage
  3  the engine's process died, also by a signal that this program passed on to it, or was killed because it
     ignored a stop or stayed suspended
)";

/// Nobody may read there any more: that keeps no host waiting.
void write(int descriptor, const std::string& line) { console::writeWithoutWaiting(descriptor, line); }

void reportReady(const EngineOptions& options, int enginePid) {
  const auto text = [](const SocketEndpoint& endpoint) { return endpoint.toString(socket::Protocol::Plain); };
  const nlohmann::json line{{"event", "ready"},
                            {"pid", ::getpid()},
                            {"enginePid", enginePid},
                            {"request", text(options.requestEndpoint)},
                            {"status", text(options.statusEndpoint)},
                            {"command", text(options.commandEndpoint)},
                            {"notification", text(options.notificationEndpoint)}};
  write(options.readyDescriptor, line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n');
}

void reportFailed(int descriptor, const std::string& reason) {
  write(descriptor, reportLine({.event = EngineEvent::Failed, .reason = reason}));
}

/// An engine program binds by itself the ports that are held for it.
void releasePorts(EngineOptions& options) {
  for (SocketEndpoint* const endpoint :
       {&options.requestEndpoint, &options.statusEndpoint, &options.notificationEndpoint}) {
    *endpoint = SocketEndpoint::FromString(endpoint->toString(socket::Protocol::Plain));
  }
}

int supervise(EngineOptions options, const EngineRunner& runner) {
  console::setLogOrigin(options.program + ' ' + std::to_string(::getpid()) + ", " +
                        console::engineName(options.workflowManagerId, options.engineId));
  const auto onFailure = [&](const std::string& failure) {
    const std::string reason = console::withLimit(failure);
    utils::logError(reason);
    reportFailed(options.readyDescriptor, reason);
  };
  EngineToRun engine;
  try {
    engine = runner.choose(options);
  } catch (const std::exception& error) {
    onFailure(error.what());
    removeFilesOf(options, processes::BoundBy::Anybody);
    return static_cast<int>(EngineEnd::NotStarted);
  }
  if (std::holds_alternative<EngineProgram>(engine)) releasePorts(options);
  const auto outcome = superviseEngine(
      options, engine, [&](int enginePid) { reportReady(options, enginePid); }, onFailure);
  if (outcome.run) {
    write(options.readyDescriptor, reportLine({.event = EngineEvent::Ended, .end = outcome.run}));
  }
  return static_cast<int>(outcome.end);
}

/// The supervisor was started as another process, and has this one's output.
int serveInThisProcess(const EngineOptions& options, const EngineRunner& runner) {
  const char* const origin = std::getenv(logOriginVariable);  // NOLINT(concurrency-mt-unsafe): one thread
  if (origin != nullptr) console::setLogOrigin(origin);
  // Line by line, as to a terminal: what a process has printed when it dies is not to die in its buffer.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const EngineReporter supervisor{base::FileDescriptor(options.readyDescriptor)};
  EngineToRun engine;
  try {
    engine = runner.choose(options);
  } catch (const std::exception& error) {
    supervisor.report({.event = EngineEvent::Failed, .reason = error.what()});
    return static_cast<int>(EngineEnd::NotStarted);
  }
  if (const auto* const loader = std::get_if<EngineLoader>(&engine)) {
    return runEngineChild(options, *loader, supervisor);
  }
  return becomeProgram(std::get<EngineProgram>(engine), options, supervisor);
}

int run(const EngineCommandLine& commandLine, const EngineRunner& runner) {
  EngineOptions options = commandLine.options();
  options.program = runner.name;
  return isSupervisedProgram() ? serveInThisProcess(options, runner) : supervise(std::move(options), runner);
}

}  // namespace

int runEngine(int argumentCount, char** arguments, const EngineRunner& runner) {
  CLI::App app(runner.summary, runner.name);
  app.footer(exitCodes + runner.examples);
  const EngineCommandLine commandLine(app);
  if (runner.addOptions) runner.addOptions(app);
  if (const auto exitCode = console::parseCommandLine(app, argumentCount, arguments)) return *exitCode;
  console::showLog(commandLine.isVerbose() ? console::Shown::Everything : console::Shown::Failures);
  // Whichever way it ends, behind its last line.
  const struct Count {
    ~Count() { console::writeDroppedLines(); }
  } count;
  try {
    return run(commandLine, runner);
  } catch (const std::exception& error) {
    const std::string reason = console::withLimit(error.what());
    console::writeErrorLine(runner.name + ": " + reason);
    reportFailed(commandLine.readyDescriptor(), reason);
    return static_cast<int>(EngineEnd::NotStarted);
  }
}

int runEngine(int argumentCount, char** arguments, const engines::IEngineFactory& factory) {
  const std::string name =
      argumentCount > 0 ? std::filesystem::path(arguments[0]).filename().string() : "engine";
  // The caller's, which outlives this call.
  auto shared = std::shared_ptr<const engines::IEngineFactory>(&factory, [](const auto*) {});
  return runEngine(
      argumentCount, arguments,
      EngineRunner{.name = name, .summary = factory.describe().summary, .choose = [&](const EngineOptions&) {
                     return EngineToRun(EngineLoader([shared] { return shared; }));
                   }});
}

}  // namespace qor::hosting
