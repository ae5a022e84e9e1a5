#include "programs/service/EngineLauncher.h"

#include <sys/wait.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "programs/service/EngineReport.h"
#include "qor/utils/Log.h"
#include "runtime/console/Limits.h"
#include "runtime/console/LogLine.h"
#include "runtime/processes/SocketFiles.h"

namespace qor::programs {

using processes::ChildProcess;
using processes::describeStatus;

namespace {

using Clock = std::chrono::steady_clock;

/// The program itself gives its engine 20 s.
constexpr std::chrono::seconds timeToBeReady{25};
/// And 5 s to end, when it has to.
constexpr std::chrono::seconds timeToEnd{7};
constexpr std::chrono::milliseconds lookInterval{100};

/// An engine has one host: another reader could hold that up, or take what was kept for it. The host itself
/// is given the address alone, which any implementation understands.
constexpr const char* oneReader = "?readers=1";

/// An argument ends at its first zero byte.
bool fitsCommandLine(const std::string& text) { return text.find('\0') == std::string::npos; }

std::vector<std::string> argumentsFor(const WantedEngine& wanted, const EngineEndpoints& endpoints,
                                      const std::filesystem::path& directory,
                                      std::optional<unsigned int> core) {
  std::vector<std::string> arguments;
  // In one word, so that no value is taken for an option; but one word cannot say that the value is empty.
  const auto add = [&](const std::string& option, const std::string& value) {
    if (value.empty()) {
      arguments.insert(arguments.end(), {option, value});
    } else {
      arguments.push_back(option + '=' + value);
    }
  };
  if (fitsCommandLine(wanted.workflowManagerId)) {
    add("--workflow-manager-id", wanted.workflowManagerId);
  } else {
    add("--id-length", std::to_string(wanted.workflowManagerId.size()));
  }
  add("--engine-id", std::to_string(wanted.engineId));
  add("--description", "-");
  add("--request", endpoints.request);
  add("--status", endpoints.status + oneReader);
  add("--command", endpoints.command);
  add("--notification", endpoints.notification + oneReader);
  add("--directory", directory.string());
  // Its standard output is anyone's, its engine's libraries' for instance.
  add("--ready-fd", std::to_string(ChildProcess::lineDescriptor));
  if (core) add("--core", std::to_string(*core));
  return arguments;
}

/// What the program reads on its standard input.
std::string inputFor(const WantedEngine& wanted) {
  return fitsCommandLine(wanted.workflowManagerId) ? wanted.description
                                                   : wanted.workflowManagerId + wanted.description;
}

/// What an engine's program reports on its line descriptor; none when the program ends without one, does not
/// print it in time, or this one is to end.
std::optional<std::string> firstLineOf(ChildProcess& process, const std::function<bool()>& isToEnd) {
  const auto deadline = Clock::now() + timeToBeReady;
  std::optional<std::string> line;
  while (!line && !process.reap() && Clock::now() < deadline && !isToEnd()) {
    line = process.readLine(lookInterval);
  }
  return line ? line : process.readLine(std::chrono::milliseconds(0));
}

/// The process of the engine, once that is ready; throws what keeps it from being so.
pid_t awaitReady(ChildProcess& process, const std::function<bool()>& isToEnd) {
  const auto line = firstLineOf(process, isToEnd);
  const ReadyReport report = line ? readyReportFrom(*line) : ReadyReport{};
  if (line && report.failure.empty()) return report.engineProcess;
  if (line) throw std::runtime_error(report.failure);
  if (const auto status = process.reap()) {
    throw std::runtime_error("its process ended before it was ready: " + describeStatus(*status));
  }
  if (isToEnd()) throw std::runtime_error("the service is ending");
  throw std::runtime_error("its process did not say that it is ready within " +
                           std::to_string(timeToBeReady.count()) + " s");
}

/// What a program that has ended reported last; none when it did not come to that.
std::optional<EndReport> endReportOf(ChildProcess& process) {
  // More than a pipe holds of them, for a program that reports as it likes.
  constexpr int mostLines = 100;
  for (int lines = 0; lines < mostLines; ++lines) {
    const auto line = process.readLine(std::chrono::milliseconds(0));
    if (!line) break;
    if (auto report = endReportFrom(*line)) return report;
  }
  return std::nullopt;
}

bool isFailure(const EndReport& report) { return report.outcome == "failed" || report.outcome == "died"; }

hosting::DeadEngine identityOf(std::string workflowManagerId, std::uint32_t engineId,
                               const EngineEndpoints& endpoints) {
  return {.workflowManagerId = std::move(workflowManagerId),
          .engineId = engineId,
          .requestEndpoint = socket::SocketEndpoint::FromString(endpoints.request),
          .statusEndpoint = socket::SocketEndpoint::FromString(endpoints.status + oneReader),
          .notificationEndpoint = socket::SocketEndpoint::FromString(endpoints.notification + oneReader),
          .cause = ""};
}

/// What became of an engine, for people.
std::string describeEnd(const std::optional<EndReport>& report, int status) {
  if (!report) return describeStatus(status);
  std::string text = report->outcome;
  if (!report->reason.empty()) text += ": " + report->reason;
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
    auto arguments = argumentsFor(wanted, start->endpoints, start->directory.path(), start->core);
    if (settings_.withTestEngine) arguments.emplace_back("--with-test-engine");
    Start& begun = *starts_.emplace_back(std::move(start));
    try {
      begun.thread = std::jthread([this, &begun, arguments = std::move(arguments), input = inputFor(wanted)](
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
    if (start.process) start.process->end(timeToEnd);
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
    start.directory.handOver();
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
    if (status) lookAfter(engine, *status);
    return status.has_value();
  });
  std::erase_if(orphans_, [this](const std::unique_ptr<OrphanedEngine>& orphan) {
    if (!orphan->attend()) return false;
    if (!orphan->isDead()) abandoned_.push_back(orphan->directory());
    groups_.push_back(orphan->group());
    return true;
  });
  std::erase_if(abandoned_, processes::removeIfUnused);
  std::erase_if(groups_, reapGroup);
}

void EngineLauncher::lookAfter(Engine& engine, int status) {
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
