#include "programs/service/EngineLauncher.h"

#include <sys/wait.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "programs/service/ReadyLine.h"
#include "qor/utils/Log.h"
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

std::string nameOf(const WantedEngine& wanted) {
  return "engine " + std::to_string(wanted.engineId) + " of \"" + wanted.workflowManagerId + "\"";
}

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
  add("--status", endpoints.status);
  add("--command", endpoints.command);
  add("--notification", endpoints.notification);
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

/// Throws what keeps the engine from being ready.
void requireReady(ChildProcess& process, const std::function<bool()>& isToEnd) {
  const auto line = firstLineOf(process, isToEnd);
  const std::string reason = line ? readyLineFailure(*line) : "";
  if (line && reason.empty()) return;
  if (line) throw std::runtime_error(reason);
  if (const auto status = process.reap()) {
    throw std::runtime_error("its process ended before it was ready: " + describeStatus(*status));
  }
  if (isToEnd()) throw std::runtime_error("the service is ending");
  throw std::runtime_error("its process did not say that it is ready within " +
                           std::to_string(timeToBeReady.count()) + " s");
}

}  // namespace

EngineEndpoints EngineLauncher::launch(const WantedEngine& wanted, const std::function<bool()>& isToEnd) {
  if (engines_.size() >= settings_.maximumEngines) {
    throw std::runtime_error("too many engines: " + std::to_string(engines_.size()) +
                             " are running, and the limit is " + std::to_string(settings_.maximumEngines));
  }
  processes::PrivateDirectory directory;
  const auto endpoint = [&](const char* name) { return "ipc://" + (directory.path() / name).string(); };
  EngineEndpoints endpoints{endpoint("request"), endpoint("status"), endpoint("command"),
                            endpoint("notification")};
  const auto start = Clock::now();
  try {
    const auto core = leastUsedCore();
    auto arguments = argumentsFor(wanted, endpoints, directory.path(), core);
    if (settings_.withTestEngine) arguments.emplace_back("--with-test-engine");
    ChildProcess process(settings_.program, std::move(arguments), inputFor(wanted),
                         ChildProcess::Lines::OnLineDescriptor);
    try {
      requireReady(process, isToEnd);
    } catch (...) {
      process.end(timeToEnd);
      throw;
    }
    utils::logInfo(nameOf(wanted) + ": process " + std::to_string(process.pid()) + " is ready");
    engines_.push_back({nameOf(wanted), std::move(process), directory.path(), start, core});
    directory.handOver();
    return endpoints;
  } catch (const std::exception& error) {
    throw std::runtime_error("cannot start " + nameOf(wanted) + ": " + error.what());
  }
}

std::optional<unsigned int> EngineLauncher::leastUsedCore() const {
  if (settings_.cores.empty()) return std::nullopt;
  return *std::ranges::min_element(settings_.cores, {}, [this](unsigned int core) {
    return std::ranges::count(engines_, core, &Engine::core);
  });
}

void EngineLauncher::reap() {
  std::erase_if(engines_, [this](Engine& engine) {
    const auto status = engine.process.reap();
    if (!status) return false;
    // What ends by itself has removed it.
    if (WIFSIGNALED(*status)) abandoned_.push_back(engine.directory);
    const auto lived = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - engine.started);
    const std::string text = engine.name + ": process " + std::to_string(engine.process.pid()) +
                             " ended after " + std::to_string(lived.count()) +
                             " s: " + describeStatus(*status);
    *status == 0 ? utils::logInfo(text) : utils::logWarning(text);
    return true;
  });
  std::erase_if(abandoned_, processes::removeIfUnused);
}

}  // namespace qor::programs
