#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "qor/socket/SocketEndpoint.h"

namespace qor::hosting {

/// What one engine's process is started for.
struct EngineOptions {
  /// The program's name, for its log lines and its processes.
  std::string program = "tamb-engine";
  std::string workflowManagerId;
  std::uint32_t engineId = 0;
  /// The description itself, a JSON document.
  std::string description;
  /// The engine's process binds all but the command endpoint, to which it connects.
  socket::SocketEndpoint requestEndpoint;
  socket::SocketEndpoint statusEndpoint;
  socket::SocketEndpoint commandEndpoint;
  socket::SocketEndpoint notificationEndpoint;
  /// Of the sockets; removed at the end if it is empty. Empty itself when it is not ours to remove.
  std::filesystem::path directory;
  /// Where the program reports that the engine is ready, and at last what became of it: it stays open until
  /// then. The engine's process closes it.
  int readyDescriptor = 1;
  /// What the messaging threads keep to, if anything; what the engine runs is not kept to it.
  std::optional<unsigned int> core;
};

/// The command line of an engine's program, without its name, for these options; the description is to be
/// read from the standard input. The directory and the program's name are left out.
std::vector<std::string> argumentsFor(const EngineOptions& options);

/// What is to be on its standard input.
std::string inputFor(const EngineOptions& options);

}  // namespace qor::hosting
