#include "hosting/EngineCommandLine.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "qor/socket/Socket.h"
#include "runtime/processes/Cores.h"

namespace qor::hosting {

namespace {

using socket::SocketEndpoint;

/// As many bytes of the standard input as --id-length names.
std::string readWorkflowManagerId(std::size_t length) {
  // Longer than any that a submission can carry.
  constexpr std::size_t longest = socket::Socket::maximumMessageSize;
  std::string id(std::min(length, longest), '\0');
  std::cin.read(id.data(), static_cast<std::streamsize>(id.size()));
  if (length > longest || static_cast<std::size_t>(std::cin.gcount()) != length) {
    throw std::runtime_error("--id-length " + std::to_string(length) + ": expected an id of that length, " +
                             std::to_string(longest) + " at most, on the standard input");
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
    throw std::runtime_error("--command \"" + text +
                             "\": cannot connect to port 0; expected the port that the host binds");
  }
  return endpoint;
}

SocketEndpoint ownEndpoint(const std::string& text) {
  return SocketEndpoint::FromString(text).withReservedPort();
}

std::string descriptorComplaint(const std::string& text) {
  return ::fcntl(std::atoi(text.c_str()), F_GETFD) < 0 ? "descriptor " + text + " is not open" : "";
}

}  // namespace

EngineCommandLine::EngineCommandLine(CLI::App& app) {
  auto& ids = *app.add_option_group("id", "Workflow manager that sends the commands, one of");
  ids.add_option("--workflow-manager-id", workflowManagerId_, "The workflow manager's id");
  ids.add_option("--id-length", idLength_,
                 "Length in bytes of its id, which precedes the description on the standard input; for an id "
                 "that does not fit on a command line");
  ids.require_option(1);
  app.add_option("--engine-id", engineId_, "The engine's id in that workflow manager")->required();
  app.add_option("--description", description_,
                 "The engine's description: a JSON file, or - for the standard input")
      ->required();
  app.add_option("--request", request_,
                 "Endpoint to receive requests on, such as ipc://PATH or tcp://127.0.0.1:0")
      ->required();
  app.add_option("--status", status_, "Endpoint to publish the engine's status on")->required();
  app.add_option("--command", command_, "Endpoint of the host to receive commands from")->required();
  app.add_option("--notification", notification_, "Endpoint to publish notifications on")->required();
  app.add_option("--directory", directory_, "Directory of the sockets, removed at the end if it is empty");
  app.add_option("--ready-fd", readyDescriptor_,
                 "Open descriptor for reports: whether the engine is ready, and finally how it ended")
      ->capture_default_str()
      ->check(descriptorComplaint);
  app.add_option("--core", core_,
                 "Core for the messaging threads; a core with little other work shortens reply times");
  app.add_flag("--verbose", isVerbose_, "Show all log records");
}

EngineOptions EngineCommandLine::options() const {
  if (core_) processes::requireUsable({*core_}, "--core");
  // Both may be in the standard input, in this order.
  std::string workflowManagerId = idLength_ > 0 ? readWorkflowManagerId(idLength_) : workflowManagerId_;
  std::string description = readDescription(description_);
  return {.workflowManagerId = std::move(workflowManagerId),
          .engineId = engineId_,
          .description = std::move(description),
          .requestEndpoint = ownEndpoint(request_),
          .statusEndpoint = ownEndpoint(status_),
          .commandEndpoint = hostsEndpoint(command_),
          .notificationEndpoint = ownEndpoint(notification_),
          .directory = directory_,
          .readyDescriptor = readyDescriptor_,
          .core = core_};
}

}  // namespace qor::hosting
