#include "programs/host/Workflow.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "engines/sdk/JsonNesting.h"
#include "programs/host/KnownManual.h"
#include "runtime/console/OneLine.h"
#include "runtime/tamb/CommandMessage.h"

namespace qor::programs {

namespace {

using nlohmann::json;

constexpr std::uint32_t ticksPerSecond = 1'000'000;
/// The latest time that such ticks represent without rounding: 285 years.
constexpr double latestCommand = 9e9;

/// One line, cut to a bounded length: quoted values may hold anything.
std::runtime_error wrong(const std::string& where, const std::string& what) {
  return std::runtime_error(console::oneLine("workflow: " + where + ": " + what));
}

/// Otherwise a mistyped key would be ignored silently.
void requireKnownKeys(const json& object, const std::string& where,
                      std::initializer_list<std::string_view> known) {
  for (const auto& [key, value] : object.items()) {
    if (std::find(known.begin(), known.end(), key) != known.end()) continue;
    std::string names;
    for (const auto name : known) names.append(names.empty() ? "" : ", ").append(name);
    throw wrong(where, fmt::format("unknown key {:?}; expected one of {}", key, names));
  }
}

std::int64_t ticksOf(const TimedCommand& command) {
  if (command.at >= 0 && command.at <= latestCommand) return std::llround(command.at * ticksPerSecond);
  throw wrong(
      "command \"" + command.name + "\"",
      fmt::format("invalid time {}: expected seconds of media from 0 to {:.0f}", command.at, latestCommand));
}

template <class Value>
Value valueOr(const json& object, const std::string& where, const char* key, const char* expected,
              Value fallback) {
  try {
    return object.value(key, std::move(fallback));
  } catch (const json::exception&) {
    throw wrong(where, std::string("\"") + key + "\" is " + object.at(key).dump() + "; expected " + expected);
  }
}

/// Refuses ids out of range, which would otherwise wrap around.
std::uint32_t engineIdIn(const json& document) {
  const json id = document.value("engineId", json(Workflow().engineId));
  // An integer that is not negative is unsigned to the parser.
  if (!id.is_number_unsigned() || id.get<std::uint64_t>() > UINT32_MAX) {
    throw wrong("document", "\"engineId\" is " + id.dump() + "; expected a number from 0 to 4294967295");
  }
  return id.get<std::uint32_t>();
}

/// Without the library's name for the kind of error, "[json.exception.parse_error.101] ".
std::string withoutTag(const std::string& text) {
  const auto end = text.find("] ");
  return text.starts_with("[json.") && end != std::string::npos ? text.substr(end + 2) : text;
}

/// Bounds the nesting: quoting a value recurses as deep as the value.
json parsed(std::istream& in, const std::string& name) {
  const std::string text(std::istreambuf_iterator<char>(in), {});
  if (engines::isNestedDeeper(text, engines::deepestNesting)) {
    throw wrong(name, fmt::format("is nested deeper than {} levels", engines::deepestNesting));
  }
  try {
    return json::parse(text);
  } catch (const json::exception& error) {
    throw wrong(name + " is not JSON", withoutTag(error.what()));
  }
}

TimedCommand commandFrom(const json& object, const std::string& where) {
  if (!object.is_object()) throw wrong(where, object.dump() + " is not an object");
  requireKnownKeys(object, where, {"at", "name", "step", "arguments"});
  TimedCommand command;
  command.at = valueOr(object, where, "at", "a media time in seconds", 0.0);
  command.name = valueOr(object, where, "name", "a text", std::string());
  command.step = valueOr(object, where, "step", "a text", std::string());
  command.arguments = object.value("arguments", json::object());
  if (command.name.empty()) throw wrong(where, "\"name\" is missing");
  if (!command.arguments.is_object()) {
    throw wrong(where, "\"arguments\" is " + command.arguments.dump() + "; expected an object");
  }
  return command;
}

std::shared_ptr<const tamb::IParametersCollectionInstance> parametersFrom(const json& arguments) {
  if (arguments.empty()) return nullptr;
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  for (const auto& [key, value] : arguments.items()) {
    if (value.is_number_unsigned() && value.get<std::uint64_t>() > INT64_MAX) {
      prototype->AddUint64Key(key, value.get<std::uint64_t>(), "");
    } else if (value.is_boolean()) {
      prototype->AddBoolKey(key, value.get<bool>(), "");
    } else if (value.is_number_integer()) {
      prototype->AddInt64Key(key, value.get<std::int64_t>(), "");
    } else if (value.is_number()) {
      prototype->AddDoubleKey(key, value.get<double>(), "");
    } else if (value.is_string()) {
      prototype->AddUTF8StringKey(key, value.get<std::string>(), "");
    } else {
      throw wrong("argument \"" + key + "\"", value.dump() +
                                                  " cannot be sent; expected a string, a number or a "
                                                  "boolean");
    }
  }
  return tamb::CreateParametersCollectionInstance(prototype);
}

}  // namespace

std::string uniqueWorkflowManagerId() {
  return fmt::format("tamb-host-{}-{:08x}", ::getpid(), static_cast<std::uint32_t>(std::random_device()()));
}

std::vector<std::shared_ptr<const tamb::ICommandMessage>> Workflow::messages(
    const engines::EngineManual& manual) const {
  std::vector<std::shared_ptr<const tamb::ICommandMessage>> messages;
  const auto add = [&](const TimedCommand& command) {
    messages.push_back(std::make_shared<tamb::CommandMessage>(tamb::CommandFields{
        .commandArgs = parametersFrom(command.arguments),
        .time = {tamb::EditRate(ticksPerSecond, 1), ticksOf(command), nullptr},
        .commandName = command.name,
        .commandId = static_cast<unsigned int>(messages.size() + 1),
        .workflowManagerId = workflowManagerId,
        .engineId = engineId,
        .stepId = command.step.empty() ? manual.step : command.step,
    }));
  };
  for (const auto& command : commands) add(command);
  if (canStartPaused(manual)) {
    add({.at = 0, .name = resumeCommand, .step = {}, .arguments = json::object()});
  }
  return messages;
}

std::string Workflow::description(const engines::EngineManual& manual) const {
  json description = engine;
  if (canStartPaused(manual)) description[startPausedKey] = true;
  try {
    return description.dump();
  } catch (const json::exception&) {
    throw wrong("engine", "a string in it is not UTF-8: " +
                              description.dump(-1, ' ', false, json::error_handler_t::replace));
  }
}

Workflow readWorkflow(const std::filesystem::path& file) {
  const auto fail = [&](const std::string& reason) -> std::runtime_error {
    return std::runtime_error("cannot read the workflow \"" + file.string() + "\": " + reason);
  };
  std::error_code ignored;
  if (std::filesystem::is_directory(file, ignored)) throw fail("it is a folder; expected a JSON file");
  std::ifstream in(file);
  if (!in) throw fail(std::generic_category().message(errno));
  return readWorkflow(in, "\"" + file.string() + "\"");
}

Workflow readWorkflow(std::istream& in, const std::string& name) {
  const json document = parsed(in, name);
  if (!document.is_object()) {
    throw wrong(name,
                R"(is not an object; expected one such as {"engine": {"engine": "media", "input": "FILE"}})");
  }
  requireKnownKeys(document, name, {"workflowManagerId", "engineId", "engine", "commands"});
  Workflow workflow;
  workflow.workflowManagerId =
      valueOr(document, "document", "workflowManagerId", "a text", workflow.workflowManagerId);
  workflow.engineId = engineIdIn(document);
  if (!document.contains("engine") || !document["engine"].is_object()) {
    throw wrong("document", "\"engine\" is missing; expected the object that describes the engine");
  }
  workflow.engine = document["engine"];
  const json commands = document.value("commands", json::array());
  if (!commands.is_array()) throw wrong("\"commands\"", commands.dump() + " is not a list");
  for (std::size_t i = 0; i < commands.size(); ++i) {
    workflow.commands.push_back(commandFrom(commands[i], "command " + std::to_string(i + 1)));
  }
  return workflow;
}

TimedCommand commandFrom(const std::vector<std::string>& words) {
  TimedCommand command;
  std::size_t used = 0;
  try {
    command.at = std::stod(words.at(0), &used);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used == 0 || used != words[0].size() || words.size() < 2) {
    throw std::runtime_error("--at " + (words.empty() ? "" : words[0]) +
                             ": expected TIME NAME KEY=VALUE..., the time in seconds of media");
  }
  command.name = words[1];
  command.arguments = json::object();
  for (std::size_t i = 2; i < words.size(); ++i) {
    const auto equals = words[i].find('=');
    if (equals == std::string::npos) throw std::runtime_error("--at: \"" + words[i] + "\" is not KEY=VALUE");
    command.arguments[words[i].substr(0, equals)] = words[i].substr(equals + 1);
  }
  return command;
}

}  // namespace qor::programs
