#include "hosting/EngineReport.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <string_view>

#include "runtime/console/OneLine.h"

namespace qor::hosting {

namespace {

using nlohmann::json;

constexpr std::array<std::string_view, 8> eventNames{"made",          "ready", "failed",  "running",
                                                     "stopRequested", "idle",  "leaving", "ended"};
/// What a pipe takes whole (PIPE_BUF): several threads report how a run goes.
constexpr std::size_t longestSharedLine = 4096;
/// Nobody else reports while an engine fails to start.
constexpr std::size_t longestFailure = 32'768;

/// Empty unless the object has that key, with a text.
std::string textOf(const json& object, const char* key) {
  const auto value = object.find(key);
  return value != object.end() && value->is_string() ? value->get<std::string>() : "";
}

pid_t processIn(const json& object, const char* key) {
  const auto value = object.find(key);
  if (value == object.end() || !value->is_number_unsigned()) return 0;
  const auto number = value->get<std::uint64_t>();
  return number <= std::numeric_limits<pid_t>::max() ? static_cast<pid_t>(number) : 0;
}

std::string lineOf(const json& object) {
  return object.dump(-1, ' ', false, json::error_handler_t::replace) + '\n';
}

}  // namespace

std::string reportLine(const EngineReport& report) {
  json object{{"event", eventNames.at(static_cast<std::size_t>(report.event))}};
  if (report.end) object["outcome"] = nameOf(report.end->kind);
  if (report.engineProcess != 0) object["enginePid"] = report.engineProcess;
  const std::string& reason = report.end ? report.end->reason : report.reason;
  if (reason.empty()) return lineOf(object);
  const std::size_t longest = report.event == EngineEvent::Failed ? longestFailure : longestSharedLine;
  // JSON may escape a byte with a second one.
  for (std::size_t cut = std::min(longest - 200, console::longestReason);; cut /= 2) {
    object["reason"] = console::oneLine(reason, cut);
    std::string line = lineOf(object);
    if (line.size() <= longest) return line;
  }
}

std::optional<EngineReport> reportFrom(const std::string& line) {
  const auto object = json::parse(line, nullptr, false);
  if (!object.is_object()) return std::nullopt;
  const auto* const name = std::ranges::find(eventNames, textOf(object, "event"));
  if (name == eventNames.end()) return std::nullopt;
  EngineReport report{.event = static_cast<EngineEvent>(name - eventNames.begin()),
                      .reason = console::oneLine(textOf(object, "reason")),
                      .engineProcess = processIn(object, "enginePid")};
  if (const auto kind = runEndNamed(textOf(object, "outcome"))) report.end = RunEnd{*kind, report.reason};
  return report;
}

}  // namespace qor::hosting
