#include "hosting/EngineOptions.h"

namespace qor::hosting {

namespace {

/// An argument ends at its first zero byte.
bool fitsCommandLine(const std::string& text) { return text.find('\0') == std::string::npos; }

}  // namespace

std::vector<std::string> argumentsFor(const EngineOptions& options) {
  std::vector<std::string> arguments;
  // In one word, so that no value is taken for an option; but one word cannot hold an empty value.
  const auto add = [&](const std::string& option, const std::string& value) {
    if (value.empty()) {
      arguments.insert(arguments.end(), {option, value});
    } else {
      arguments.push_back(option + '=' + value);
    }
  };
  const auto text = [](const socket::SocketEndpoint& endpoint) {
    return endpoint.toString(socket::Protocol::Plain);
  };
  if (fitsCommandLine(options.workflowManagerId)) {
    add("--workflow-manager-id", options.workflowManagerId);
  } else {
    add("--id-length", std::to_string(options.workflowManagerId.size()));
  }
  add("--engine-id", std::to_string(options.engineId));
  add("--description", "-");
  add("--request", text(options.requestEndpoint));
  add("--status", text(options.statusEndpoint));
  add("--command", text(options.commandEndpoint));
  add("--notification", text(options.notificationEndpoint));
  // The standard output belongs to the engine's libraries.
  add("--ready-fd", std::to_string(options.readyDescriptor));
  if (options.core) add("--core", std::to_string(*options.core));
  return arguments;
}

std::string inputFor(const EngineOptions& options) {
  return fitsCommandLine(options.workflowManagerId) ? options.description
                                                    : options.workflowManagerId + options.description;
}

}  // namespace qor::hosting
