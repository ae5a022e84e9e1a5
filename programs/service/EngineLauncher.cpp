#include "programs/service/EngineLauncher.h"

#include <sys/wait.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "hosting/EngineOptions.h"
#include "hosting/EngineReport.h"
#include "hosting/RunEnd.h"
#include "hosting/TimeLimits.h"
#include "qor/utils/Log.h"
#include "runtime/console/Limits.h"
#include "runtime/console/LogLine.h"
#include "runtime/console/OneLine.h"
#include "runtime/processes/SocketFiles.h"

namespace qor::programs {

using processes::ChildProcess;
using processes::describeStatus;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t longestQuotation = 200;

/// An engine has one host: another reader could slow it down, or receive messages kept for it. The host gets
/// the address without this parameter, in the form that every implementation parses.
constexpr const char* oneReader = "?readers=1";

socket::SocketEndpoint forOneReader(const std::string& address) {
  return socket::SocketEndpoint::FromString(address + oneReader);
}

hosting::EngineOptions optionsFor(const WantedEngine& wanted, const EngineEndpoints& endpoints,
                                  const std::filesystem::path& directory, std::optional<unsigned int> core) {
  return {.workflowManagerId = wanted.workflowManagerId,
          .engineId = wanted.engineId,
          .description = wanted.description,
          .requestEndpoint = socket::SocketEndpoint::FromString(endpoints.request),
          .statusEndpoint = forOneReader(endpoints.status),
          .commandEndpoint = socket::SocketEndpoint::FromString(endpoints.command),
          .notificationEndpoint = forOneReader(endpoints.notification),
          .directory = directory,
          .readyDescriptor = ChildProcess::lineDescriptor,
          .core = core};
}

/// The first report of an engine's program; none when the program exits without one, does not report in time,
/// or this process has to stop.
std::optional<std::string> firstLineOf(ChildProcess& process, const std::function<bool()>& shouldStop) {
  const auto deadline = Clock::now() + hosting::supervisorReadyWithin;
  std::optional<std::string> line;
  while (!line && !process.reap() && Clock::now() < deadline && !shouldStop()) {
    line = process.readLine(hosting::lookInterval);
  }
  return line ? line : process.readLine(std::chrono::milliseconds(0));
}

/// The engine's process id from a supervisor's "ready" report; 0 when it is missing. Any other report is
/// thrown.
pid_t engineProcessIn(const std::string& line) {
  const auto report = hosting::reportFrom(line);
  if (report && report->event == hosting::EngineEvent::Ready) return report->engineProcess;
  if (report && !report->reason.empty()) throw std::runtime_error(report->reason);
  throw std::runtime_error("its process reported \"" + console::oneLine(line, longestQuotation) +
                           "\"; expected a ready report");
}

/// Waits until the engine is ready and returns its process id; throws the reason why it did not become ready.
pid_t awaitReady(ChildProcess& process, const std::function<bool()>& shouldStop) {
  const auto line = firstLineOf(process, shouldStop);
  if (line) return engineProcessIn(*line);
  if (const auto status = process.reap()) {
    throw std::runtime_error("its process ended before it was ready: " + describeStatus(*status));
  }
  if (shouldStop()) throw std::runtime_error("the service is shutting down");
  throw std::runtime_error("its process did not report within " +
                           std::to_string(hosting::supervisorReadyWithin.count()) + " s");
}

/// How the engine of an exited program ended; none when the program has not reported it.
std::optional<hosting::RunEnd> endReportOf(ChildProcess& process) {
  // More reports than a pipe holds; bounds the loop for a program that never stops reporting.
  constexpr int mostLines = 100;
  for (int lines = 0; lines < mostLines; ++lines) {
    const auto line = process.readLine(std::chrono::milliseconds(0));
    if (!line) break;
    const auto report = hosting::reportFrom(*line);
    if (report && report->event == hosting::EngineEvent::Ended) return report->end;
  }
  return std::nullopt;
}

bool isFailure(const hosting::RunEnd& end) {
  return end.kind == hosting::RunEnd::Kind::Failed || end.kind == hosting::RunEnd::Kind::Died;
}

hosting::DeadEngine identityOf(std::string workflowManagerId, std::uint32_t engineId,
                               const EngineEndpoints& endpoints) {
  return {.workflowManagerId = std::move(workflowManagerId),
          .engineId = engineId,
          .requestEndpoint = socket::SocketEndpoint::FromString(endpoints.request),
          .statusEndpoint = forOneReader(endpoints.status),
          .notificationEndpoint = forOneReader(endpoints.notification),
          .cause = ""};
}

/// How an engine ended, for the log.
std::string describeEnd(const std::optional<hosting::RunEnd>& end, int status) {
  if (!end) return describeStatus(status);
  std::string text(nameOf(end->kind));
  if (!end->reason.empty()) text += ": " + end->reason;
  if (status != 0) text += " (" + describeStatus(status) + ")";
  return text;
}

}  // namespace

EngineLauncher::StartNumber EngineLauncher::begin(const WantedEngine& wanted, std::function<void()> onOver) {
  const std::size_t running = engines_.size() + orphans_.size();
  if (running + starts_.size() >= settings_.maximumEngines) {
    throw std::runtime_error("too many engines: " + std::to_string(running) + " are running and " +
                             std::to_string(starts_.size()) + " are starting, and the limit is " +
                             std::to_string(settings_.maximumEngines));
  }
  try {
    auto start = std::make_unique<Start>();
    const auto endpoint = [&](const char* name) {
      return "ipc://" + (start->directory.path() / name).string();
    };
    start->number = ++lastStart_;
    start->name = console::engineName(wanted.workflowManagerId, wanted.engineId);
    start->workflowManagerId = wanted.workflowManagerId;
    start->engineId = wanted.engineId;
    start->endpoints = {endpoint("request"), endpoint("status"), endpoint("command"),
                        endpoint("notification")};
    start->started = Clock::now();
    start->core = leastUsedCore();
    start->onOver = std::move(onOver);
    const auto options = optionsFor(wanted, start->endpoints, start->directory.path(), start->core);
    auto arguments = argumentsFor(options);
    arguments.push_back("--directory=" + options.directory.string());
    for (const auto& folder : settings_.engineFolders) arguments.push_back("--engines=" + folder.string());
    Start& begun = *starts_.emplace_back(std::move(start));
    try {
      begun.thread = std::jthread([this, &begun, arguments = std::move(arguments), input = inputFor(options)](
                                      const std::stop_token& stop) { run(begun, arguments, input, stop); });
    } catch (...) {
      starts_.pop_back();
      throw;
    }
    return begun.number;
  } catch (const std::exception& error) {
    throw std::runtime_error(
        console::withLimit("cannot start " + console::engineName(wanted.workflowManagerId, wanted.engineId) +
                           ": " + error.what()));
  }
}

void EngineLauncher::run(Start& start, std::vector<std::string> arguments, const std::string& input,
                         const std::stop_token& stop) const {
  try {
    start.process.emplace(settings_.program, std::move(arguments), input,
                          ChildProcess::Lines::OnLineDescriptor);
    start.engineProcess = awaitReady(*start.process, [&] { return stop.stop_requested(); });
  } catch (const std::exception& error) {
    start.failure = console::withLimit("cannot start " + start.name + ": " + error.what());
    if (start.process) start.process->end(hosting::supervisorExitsWithin);
  }
  start.isOver = true;
  start.onOver();
}

std::vector<EngineLauncher::Outcome> EngineLauncher::takeOutcomes() {
  std::vector<Outcome> outcomes;
  std::erase_if(starts_, [&](const std::unique_ptr<Start>& start) {
    if (!start->isOver) return false;
    if (start->thread.joinable()) start->thread.join();
    outcomes.push_back(conclude(*start));
    return true;
  });
  return outcomes;
}

EngineLauncher::Outcome EngineLauncher::conclude(Start& start) {
  if (start.failure.empty()) {
    const std::string name = start.name + " (supervisor " + std::to_string(start.process->pid()) +
                             ", engine process " + std::to_string(start.engineProcess) + ")";
    utils::logInfo(name + " is ready");
    engines_.push_back({name, identityOf(start.workflowManagerId, start.engineId, start.endpoints),
                        start.engineProcess, std::move(*start.process), start.directory.path(), start.started,
                        start.core});
    start.directory.release();
  } else if (start.process) {
    groups_.push_back(start.process->pid());
  }
  return {.start = start.number, .endpoints = start.endpoints, .failure = start.failure};
}

void EngineLauncher::endStarts() {
  for (const auto& start : starts_) start->thread.request_stop();
  for (const auto& start : starts_) {
    if (start->thread.joinable()) start->thread.join();
  }
}

std::optional<unsigned int> EngineLauncher::leastUsedCore() const {
  if (settings_.cores.empty()) return std::nullopt;
  return *std::ranges::min_element(settings_.cores, {}, [this](unsigned int core) {
    return std::ranges::count(engines_, core, &Engine::core) +
           std::ranges::count(starts_, core, [](const auto& start) { return start->core; });
  });
}

void EngineLauncher::reap() {
  std::erase_if(engines_, [this](Engine& engine) {
    const auto status = engine.process.reap();
    if (status) finish(engine, *status);
    return status.has_value();
  });
  std::erase_if(orphans_, [this](const std::unique_ptr<OrphanedEngine>& orphan) {
    if (!orphan->processPendingEvents()) return false;
    if (!orphan->isDead()) abandoned_.push_back(orphan->directory());
    groups_.push_back(orphan->group());
    return true;
  });
  std::erase_if(abandoned_, processes::removeIfUnused);
  std::erase_if(groups_, reapGroup);
}

void EngineLauncher::finish(Engine& engine, int status) {
  if (!WIFSIGNALED(status)) {
    logEnd(engine, status);
    groups_.push_back(engine.process.pid());
    return;
  }
  orphans_.push_back(
      std::make_unique<OrphanedEngine>(OrphanedEngine::Content{.name = engine.name,
                                                               .engine = std::move(engine.identity),
                                                               .supervisor = engine.process.pid(),
                                                               .engineProcess = engine.engineProcess,
                                                               .supervisorStatus = status,
                                                               .directory = engine.directory,
                                                               .started = engine.started}));
}

void EngineLauncher::logEnd(Engine& engine, int status) const {
  const auto lived = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - engine.started);
  const auto report = endReportOf(engine.process);
  const std::string text =
      engine.name + " ended after " + std::to_string(lived.count()) + " s: " + describeEnd(report, status);
  const bool isBad = report ? isFailure(*report) && settings_.reportsFailedJobs : status != 0;
  isBad ? utils::logWarning(text) : utils::logInfo(text);
}

void EngineLauncher::endTakeovers() {
  for (const auto& orphan : orphans_) orphan->requestEnd();
  for (auto& orphan : orphans_) orphan->awaitEnd();
  reap();
}

}  // namespace qor::programs
