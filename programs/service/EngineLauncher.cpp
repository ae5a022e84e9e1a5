#include "programs/service/EngineLauncher.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "qor/utils/Log.h"
#include "runtime/processes/SocketFiles.h"

namespace qor::programs {

using processes::ChildProcess;
using processes::describeStatus;
using processes::makePrivateDirectory;

namespace {

using Clock = std::chrono::steady_clock;

/// The program itself gives its engine 20 s.
constexpr std::chrono::seconds timeToBeReady{25};
constexpr std::chrono::seconds timeToEnd{2};

std::string nameOf(const WantedEngine& wanted) {
  return "engine " + std::to_string(wanted.engineId) + " of \"" + wanted.workflowManagerId + "\"";
}

std::vector<std::string> argumentsFor(const WantedEngine& wanted, const EngineEndpoints& endpoints,
                                      const std::filesystem::path& directory) {
  std::vector<std::string> arguments;
  // In one word, so that no value is taken for an option; but one word cannot say that the value is empty.
  const auto add = [&](const std::string& option, const std::string& value) {
    if (value.empty()) {
      arguments.insert(arguments.end(), {option, value});
    } else {
      arguments.push_back(option + '=' + value);
    }
  };
  add("--workflow-manager-id", wanted.workflowManagerId);
  add("--engine-id", std::to_string(wanted.engineId));
  add("--description", "-");
  add("--request", endpoints.request);
  add("--status", endpoints.status);
  add("--command", endpoints.command);
  add("--notification", endpoints.notification);
  add("--directory", directory.string());
  return arguments;
}

/// The first line that an engine's program prints; throws what keeps the engine from being ready.
void requireReady(ChildProcess& process) {
  const auto line = process.readLine(timeToBeReady);
  const auto event = nlohmann::json::parse(line.value_or(""), nullptr, false);
  if (event.is_object() && event.value("event", "") == "ready") return;
  if (event.is_object() && event.contains("reason")) throw std::runtime_error(event.value("reason", ""));
  const auto status = process.waitForEnd(timeToEnd);
  throw std::runtime_error(status ? "its process ended before it was ready: " + describeStatus(*status)
                                  : "its process did not say that it is ready within " +
                                        std::to_string(timeToBeReady.count()) + " s");
}

}  // namespace

EngineLauncher::EngineLauncher(std::filesystem::path program, std::size_t maximumEngines)
    : program_(std::move(program)), maximumEngines_(maximumEngines) {}

EngineEndpoints EngineLauncher::launch(const WantedEngine& wanted) {
  if (engines_.size() >= maximumEngines_) {
    throw std::runtime_error("too many engines: " + std::to_string(engines_.size()) +
                             " are running, and the limit is " + std::to_string(maximumEngines_));
  }
  const auto directory = makePrivateDirectory();
  const auto endpoint = [&](const char* name) { return "ipc://" + (directory / name).string(); };
  EngineEndpoints endpoints{endpoint("request"), endpoint("status"), endpoint("command"),
                            endpoint("notification")};
  const auto start = Clock::now();
  try {
    ChildProcess process(program_, argumentsFor(wanted, endpoints, directory), wanted.description);
    try {
      requireReady(process);
    } catch (...) {
      process.end(timeToEnd);
      throw;
    }
    utils::logInfo(nameOf(wanted) + ": process " + std::to_string(process.pid()) + " is ready");
    engines_.push_back({nameOf(wanted), std::move(process), start});
    return endpoints;
  } catch (const std::exception& error) {
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
    throw std::runtime_error("cannot start " + nameOf(wanted) + ": " + error.what());
  }
}

void EngineLauncher::reap() {
  std::erase_if(engines_, [](Engine& engine) {
    const auto status = engine.process.reap();
    if (!status) return false;
    const auto lived = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - engine.started);
    const std::string text = engine.name + ": process " + std::to_string(engine.process.pid()) +
                             " ended after " + std::to_string(lived.count()) +
                             " s: " + describeStatus(*status);
    *status == 0 ? utils::logInfo(text) : utils::logWarning(text);
    return true;
  });
}

}  // namespace qor::programs
