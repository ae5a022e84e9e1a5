#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <future>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "hosting/EnginesOption.h"
#include "programs/host/Engines.h"
#include "programs/host/KnownManual.h"
#include "programs/host/Location.h"
#include "programs/host/PrivateService.h"
#include "programs/host/Session.h"
#include "runtime/console/CommandLine.h"
#include "runtime/console/ErrorStream.h"
#include "runtime/console/Limits.h"
#include "runtime/console/LogLine.h"
#include "runtime/console/TerminalLog.h"
#include "runtime/tamb/CurrentException.h"

namespace {

using qor::programs::Display;
using qor::programs::Outcome;
using qor::programs::Session;
using qor::programs::Workflow;

constexpr const char* examples = R"(
Exit codes:
    0  the run finished
    1  the run failed; the reason is above
    2  wrong usage
    3  the engine's process died
    4  no engine could be started, or the engine is unknown
    5  the run ended, but the engine did not report how
    6  the run finished, but some output could not be written to the standard output
    7  the run finished, but a command failed; "CommandFailed" names it
  130  the user interrupted the run

Paths:
  Relative paths, including those in a workflow file, start from the working directory of tamb-host. A service
  on another machine opens them there. Paths within filters are passed on unchanged. A name such as
  "take:2.mkv" looks like a URL and needs "file:" in front. In a workflow file, write a name that is not UTF-8
  as {"percentEncoded": "caf%E9.mov"}.

The first Ctrl-C stops the engine; a second one exits at once.

Examples:
  tamb-host run job.json
  tamb-host run --input talk.mov --output talk.mp4 --audio-filter volume=0.8 --loudness
  tamb-host run --input clip.mp4 --output out.mkv --audio-filter volume=1 --video-filter hue=s=1 \
    --at 2 FilterCommand target=volume command=volume argument=0.2 \
    --at 3 FilterCommand target=hue command=s argument=0
  tamb-host run job.json --service ipc:///run/engines/service --json
  tamb-host engines
  tamb-host engine media --json
)";

struct Arguments {
  std::string file;
  std::string input;
  std::string output;
  std::string audioFilter;
  std::string videoFilter;
  bool loudness = false;
  bool realTime = false;
  std::vector<std::vector<std::string>> commands;
  std::string service;
  std::filesystem::path plugin;
  bool isLocal = false;
  bool json = false;
  std::vector<std::filesystem::path> engineFolders;
  std::string engineName;
  bool verbose = false;
};

Workflow workflowFrom(const Arguments& arguments) {
  Workflow workflow;
  if (!arguments.file.empty()) {
    workflow = qor::programs::readWorkflow(arguments.file);
  } else if (arguments.input.empty()) {
    throw std::runtime_error("nothing to run: give a workflow, or --input FILE");
  } else {
    workflow.engine = {{"engine", "media"}};
  }
  const auto set = [&](const char* key, const std::string& value) {
    if (!value.empty()) workflow.engine[key] = value;
  };
  const auto setLocation = [&](const char* key, const std::string& value) {
    if (!value.empty()) workflow.engine[key] = qor::programs::locationValue(value);
  };
  setLocation("input", arguments.input);
  setLocation("output", arguments.output);
  set("audioFilter", arguments.audioFilter);
  set("videoFilter", arguments.videoFilter);
  if (arguments.loudness) workflow.engine["loudness"] = true;
  if (arguments.realTime) workflow.engine["realTime"] = true;
  for (const auto& words : arguments.commands) workflow.commands.push_back(qor::programs::commandFrom(words));
  return workflow;
}

/// Empty for an engine in this process, which needs no plug-in.
std::filesystem::path pluginFor(const Arguments& arguments) {
  if (arguments.isLocal || !arguments.plugin.empty()) return arguments.plugin;
  return qor::processes::siblingProgram("../lib/libtamb_multiprocess.so").lexically_normal();
}

Display::Style styleFor(const Arguments& arguments) {
  if (arguments.json) return Display::Style::Json;
  return ::isatty(STDOUT_FILENO) != 0 ? Display::Style::Bar : Display::Style::Lines;
}

/// SIGHUP is ignored in a program that was started to outlive its terminal (nohup).
bool isHangUpIgnored() {
  struct sigaction action {};
  return ::sigaction(SIGHUP, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

/// Abandons the run of an engine in this process, then dies from SIGHUP. The abandon has a time limit.
[[noreturn]] void hangUp(Session& session, const sigset_t& signals) {
  try {
    session.abandon();
  } catch (const std::exception& error) {
    // Do not wait for the run: it may never end.
    qor::console::writeErrorLine("tamb-host: " + qor::console::withLimit(error.what()));
  }
  ::kill(::getpid(), SIGHUP);
  ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
  std::_Exit(128 + SIGHUP);
}

/// Waits for the end of the run, and handles signals meanwhile: all threads block them.
Outcome attend(Session& session, std::future<Outcome>& outcome, const sigset_t& signals, Display& display) {
  const timespec pause{.tv_sec = 0, .tv_nsec = 100'000'000};
  std::future<void> stopping;
  while (outcome.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
    const int signal = ::sigtimedwait(&signals, nullptr, &pause);
    if (signal < 0) continue;
    if (signal == SIGHUP) hangUp(session, signals);
    if (stopping.valid()) {
      qor::console::writeErrorLine("tamb-host: exiting at once");
      // The rest ends by itself: the service with this process, the engine once its host is silent.
      std::_Exit(static_cast<int>(Outcome::Interrupted));
    }
    display.say("tamb-host: stopping; press Ctrl-C again to exit at once");
    stopping = std::async(std::launch::async, [&session] { session.stop(); });
  }
  return outcome.get();
}

int run(const Arguments& arguments) {
  const auto display = std::make_shared<Display>(styleFor(arguments));
  Workflow workflow = workflowFrom(arguments);
  const auto manual =
      qor::programs::knownManual(qor::programs::engineNameIn(workflow.engine), arguments.engineFolders);
  // The engine's process has another working directory. If ours was removed, paths stay relative.
  std::error_code ignored;
  qor::programs::makeLocationsAbsolute(workflow.engine, manual.keys, std::filesystem::current_path(ignored));
  // Before the first thread starts, so that all threads inherit the mask.
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM}) ::sigaddset(&signals, signal);
  if (!isHangUpIgnored()) ::sigaddset(&signals, SIGHUP);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  using qor::console::Shown;
  qor::console::setLogOrigin("tamb-host " + std::to_string(::getpid()) + ", " +
                             qor::console::engineName(workflow.workflowManagerId, workflow.engineId));
  qor::console::showLog(arguments.verbose ? Shown::Everything : Shown::Failures,
                        arguments.verbose ? qor::console::Repeats::Written : qor::console::Repeats::Counted);

  std::optional<qor::programs::PrivateService> service;
  if (!arguments.isLocal && arguments.service.empty()) {
    try {
      service.emplace(arguments.engineFolders);
    } catch (const std::exception& error) {
      display->say("tamb-host: " + qor::console::withLimit(error.what()));
      return static_cast<int>(Outcome::NotStarted);
    }
  }
  Session session(std::move(workflow), manual,
                  {.isLocal = arguments.isLocal,
                   .plugin = pluginFor(arguments),
                   .serviceEndpoint = service ? service->endpoint() : arguments.service,
                   .engineFolders = arguments.engineFolders,
                   .logsEverything = arguments.verbose},
                  display);
  std::future<Outcome> outcome;
  try {
    outcome = std::async(std::launch::async, [&session] { return session.run(); });
  } catch (const std::system_error& error) {
    display->say("tamb-host: cannot start the engine: " + qor::console::withLimit(error.what()));
    return static_cast<int>(Outcome::NotStarted);
  }
  Outcome end = attend(session, outcome, signals, *display);
  if (end == Outcome::Finished && !display->allWasWritten()) {
    display->say("tamb-host: some output could not be written to the standard output");
    end = Outcome::NotShown;
  }
  qor::console::flushLog();
  return static_cast<int>(end);
}

/// Lists or describes engines.
int print(const Arguments& arguments) {
  try {
    if (arguments.engineName.empty()) {
      qor::programs::listEngines(arguments.engineFolders, arguments.json, std::cout);
    } else {
      qor::programs::describeEngine(arguments.engineFolders, arguments.engineName, arguments.json, std::cout);
    }
  } catch (...) {
    // An engine library may throw anything.
    qor::console::writeErrorLine("tamb-host: " + qor::console::withLimit(tamb::CurrentExceptionText()));
    return static_cast<int>(Outcome::NotStarted);
  }
  if (std::cout.flush()) return static_cast<int>(Outcome::Finished);
  qor::console::writeErrorLine("tamb-host: some output could not be written to the standard output");
  return static_cast<int>(Outcome::NotShown);
}

}  // namespace

int main(int argumentCount, char** values) {
  CLI::App app("Runs workflows on media engines, each in a process of its own.", "tamb-host");
  app.footer(examples);
  app.require_subcommand(1);
  Arguments arguments;
  CLI::App& runCommand = *app.add_subcommand("run", "Run a workflow and print its progress");
  runCommand.add_option("WORKFLOW", arguments.file, "Workflow to run, a JSON file");
  runCommand.add_option("--input", arguments.input, "File or URL to read");
  runCommand.add_option("--output", arguments.output, "File to write; by default the input is only analysed");
  runCommand.add_option("--audio-filter", arguments.audioFilter, "Audio filters, in FFmpeg's syntax");
  runCommand.add_option("--video-filter", arguments.videoFilter, "Video filters, in FFmpeg's syntax");
  runCommand.add_flag("--loudness", arguments.loudness, "Measure the loudness");
  runCommand.add_flag("--real-time", arguments.realTime, "Process in real time");
  runCommand
      .add_option("--at", arguments.commands,
                  "Command to execute at a media time in seconds: TIME NAME KEY=VALUE...; repeatable")
      ->expected(2, 100)
      ->inject_separator();
  runCommand.add_option("--service", arguments.service, "Submission service to use instead of a private one");
  runCommand.add_option("--plugin", arguments.plugin,
                        "Plug-in that creates remote engines; by default the one installed with tamb-host");
  runCommand.add_flag("--local", arguments.isLocal, "Run the engine in this process");
  runCommand.add_flag("--json", arguments.json, "Print each notification as one line of JSON");
  qor::hosting::addEnginesOption(runCommand, arguments.engineFolders);
  runCommand.add_flag("--verbose", arguments.verbose, "Show all log records");
  CLI::App& enginesCommand = *app.add_subcommand("engines", "List the registered engines");
  CLI::App& engineCommand =
      *app.add_subcommand("engine", "Describe an engine: its settings, commands and notifications");
  engineCommand.add_option("NAME", arguments.engineName, "The engine's name")->required();
  for (CLI::App* const command : {&enginesCommand, &engineCommand}) {
    qor::hosting::addEnginesOption(*command, arguments.engineFolders);
    command->add_flag("--json", arguments.json, "Print JSON");
  }
  if (const auto exitCode = qor::console::parseCommandLine(app, argumentCount, values)) return *exitCode;
  try {
    // Other processes have other working directories.
    for (auto& folder : arguments.engineFolders) folder = std::filesystem::absolute(folder);
    if (enginesCommand.parsed() || engineCommand.parsed()) return print(arguments);
    return run(arguments);
  } catch (const std::exception& error) {
    qor::console::writeErrorLine("tamb-host: " + qor::console::withLimit(error.what()));
    return 2;
  }
}
