#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "hosting/Supervisor.h"
#include "qor/utils/Log.h"
#include "runtime/console/CommandLine.h"
#include "runtime/console/ErrorStream.h"
#include "runtime/console/Limits.h"
#include "runtime/console/LogLine.h"
#include "runtime/console/TerminalLog.h"
#include "runtime/processes/Cores.h"

namespace {

using qor::hosting::EngineEnd;
using qor::hosting::EngineOptions;
using qor::hosting::EngineOutcome;
using qor::socket::SocketEndpoint;

constexpr const char* examples = R"(
Exit codes:
  0  the controller went, and the engine was stopped
  1  the engine could not be made, was not ready in time, or was ended before it was
  2  wrong usage
  3  the engine's process died, by a signal that this one passed on to it or otherwise, or was killed because
     it ignored a stop or was kept stopped

Examples:
  tamb-engine --workflow-manager-id studio --engine-id 1 --description job.json \
    --request ipc:///run/e1/request --status ipc:///run/e1/status \
    --command ipc:///run/e1/command --notification ipc:///run/e1/notification
)";

struct Arguments {
  std::string workflowManagerId;
  std::size_t idLength = 0;
  std::uint32_t engineId = 0;
  std::string description;
  std::string request;
  std::string status;
  std::string command;
  std::string notification;
  std::filesystem::path directory;
  int readyDescriptor = STDOUT_FILENO;
  std::optional<unsigned int> core;
  bool withTestEngine = false;
  bool verbose = false;
};

/// As many bytes of the standard input as --id-length says.
std::string readWorkflowManagerId(std::size_t length) {
  // Longer than any that a submission can carry.
  constexpr std::size_t longest = 65'536;
  std::string id(std::min(length, longest), '\0');
  std::cin.read(id.data(), static_cast<std::streamsize>(id.size()));
  if (length > longest || static_cast<std::size_t>(std::cin.gcount()) != length) {
    throw std::runtime_error("--id-length " + std::to_string(length) +
                             ": expected an id of so many bytes, 65536 at most, on the standard input");
  }
  return id;
}

std::string readDescription(const std::string& file) {
  if (file == "-") return {std::istreambuf_iterator<char>(std::cin), {}};
  std::ifstream in(file);
  std::string text;
  // A directory can be opened, but not read.
  if (in && !std::filesystem::is_directory(file)) text.assign(std::istreambuf_iterator<char>(in), {});
  if (!in || std::filesystem::is_directory(file))
    throw std::runtime_error("cannot read the description \"" + file + "\"");
  return text;
}

SocketEndpoint hostsEndpoint(const std::string& text) {
  auto endpoint = SocketEndpoint::FromString(text);
  if (endpoint.transport() == SocketEndpoint::Transport::Tcp && endpoint.port() == 0) {
    throw std::runtime_error(
        "--command \"" + text +
        "\": port 0 names no port to connect to; expected is the one that the host binds");
  }
  return endpoint;
}

EngineOptions optionsFrom(const Arguments& arguments) {
  if (arguments.core) qor::processes::requireUsable({*arguments.core}, "--core");
  const auto bound = [](const std::string& text) {
    return SocketEndpoint::FromString(text).withReservedPort();
  };
  // In this order they stand in the standard input.
  std::string workflowManagerId =
      arguments.idLength > 0 ? readWorkflowManagerId(arguments.idLength) : arguments.workflowManagerId;
  return {.workflowManagerId = std::move(workflowManagerId),
          .engineId = arguments.engineId,
          .description = readDescription(arguments.description),
          .requestEndpoint = bound(arguments.request),
          .statusEndpoint = bound(arguments.status),
          .commandEndpoint = hostsEndpoint(arguments.command),
          .notificationEndpoint = bound(arguments.notification),
          .directory = arguments.directory,
          .withTestEngine = arguments.withTestEngine,
          .readyDescriptor = arguments.readyDescriptor,
          .core = arguments.core};
}

/// Nobody may read there any more: that keeps no host waiting.
void report(int descriptor, const nlohmann::json& line) {
  qor::console::writeWithoutWaiting(
      descriptor, line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n');
}

void reportReady(const EngineOptions& options, int enginePid) {
  const auto text = [](const SocketEndpoint& endpoint) {
    return endpoint.toString(qor::socket::Protocol::Plain);
  };
  report(options.readyDescriptor, {{"event", "ready"},
                                   {"pid", ::getpid()},
                                   {"enginePid", enginePid},
                                   {"request", text(options.requestEndpoint)},
                                   {"status", text(options.statusEndpoint)},
                                   {"command", text(options.commandEndpoint)},
                                   {"notification", text(options.notificationEndpoint)}});
}

void reportFailed(int descriptor, const std::string& reason) {
  report(descriptor, {{"event", "failed"}, {"reason", reason}});
}

/// The last line, for whoever wants to know what became of an engine that was ready.
void reportEnded(int descriptor, const EngineOutcome& outcome) {
  nlohmann::json line{{"event", "ended"}, {"outcome", outcome.word}};
  if (!outcome.reason.empty()) line["reason"] = outcome.reason;
  report(descriptor, line);
}

int run(const Arguments& arguments) {
  const EngineOptions options = optionsFrom(arguments);
  qor::console::setLogOrigin("tamb-engine " + std::to_string(::getpid()) + ", " +
                             qor::console::engineName(options.workflowManagerId, options.engineId));
  const auto outcome = qor::hosting::superviseEngine(
      options, [&](int enginePid) { reportReady(options, enginePid); },
      [&](const std::string& failure) {
        const std::string reason = qor::console::withLimit(failure);
        qor::utils::logError(reason);
        reportFailed(options.readyDescriptor, reason);
      });
  if (!outcome.word.empty()) reportEnded(options.readyDescriptor, outcome);
  return static_cast<int>(outcome.end);
}

}  // namespace

int main(int argumentCount, char** values) {
  CLI::App app("Runs one engine, to be driven by a host in another process.", "tamb-engine");
  app.footer(examples);
  Arguments arguments;
  auto& ids = *app.add_option_group("id", "Whose commands the engine takes, one of");
  ids.add_option("--workflow-manager-id", arguments.workflowManagerId, "The workflow manager's id");
  ids.add_option(
      "--id-length", arguments.idLength,
      "The length of its id in bytes, which are the first of the standard input: for an id that no "
      "command line can carry");
  ids.require_option(1);
  app.add_option("--engine-id", arguments.engineId, "The engine's number there")->required();
  app.add_option("--description", arguments.description,
                 "What the engine is to do, a JSON file, or - to read it here")
      ->required();
  app.add_option("--request", arguments.request,
                 "Endpoint to take requests on, say ipc://PATH or tcp://127.0.0.1:0")
      ->required();
  app.add_option("--status", arguments.status, "Endpoint to publish the engine's status on")->required();
  app.add_option("--command", arguments.command, "Endpoint of the host to take commands from")->required();
  app.add_option("--notification", arguments.notification, "Endpoint to publish notifications on")
      ->required();
  app.add_option("--directory", arguments.directory,
                 "Directory of the sockets, removed at the end if it is empty");
  app.add_option(
         "--ready-fd", arguments.readyDescriptor,
         "Open descriptor to report on that the engine is ready, or why it is not, and what became of it")
      ->capture_default_str()
      ->check([](const std::string& text) {
        return ::fcntl(std::atoi(text.c_str()), F_GETFD) < 0 ? "no descriptor " + text + " is open" : "";
      });
  app.add_option("--core", arguments.core,
                 "Core that the messaging threads keep to: answers come sooner if it has little else to do");
  app.add_flag("--with-test-engine", arguments.withTestEngine,
               "Offer the engine \"test\" too, which crashes and freezes on demand");
  app.add_flag("--verbose", arguments.verbose, "Show all log records");
  if (const auto exitCode = qor::console::parseCommandLine(app, argumentCount, values)) return *exitCode;
  using qor::console::Shown;
  qor::console::showLog(arguments.verbose ? Shown::Everything : Shown::Failures);
  // Whichever way it ends, behind its last line.
  const struct Count {
    ~Count() { qor::console::writeDroppedLines(); }
  } count;
  try {
    return run(arguments);
  } catch (const std::exception& error) {
    const std::string reason = qor::console::withLimit(error.what());
    qor::console::writeErrorLine("tamb-engine: " + reason);
    reportFailed(arguments.readyDescriptor, reason);
    return static_cast<int>(EngineEnd::NotStarted);
  }
}
