#include "programs/service/EngineReport.h"

#include <nlohmann/json.hpp>

#include "runtime/console/OneLine.h"

namespace qor::programs {

namespace {

constexpr std::size_t longestQuotation = 200;

/// Empty unless the object has that key, with a text.
std::string textOf(const nlohmann::json& object, const char* key) {
  const auto value = object.find(key);
  return value != object.end() && value->is_string() ? value->get<std::string>() : "";
}

pid_t processIn(const nlohmann::json& object, const char* key) {
  const auto value = object.find(key);
  return value != object.end() && value->is_number_unsigned() ? value->get<pid_t>() : 0;
}

}  // namespace

ReadyReport readyReportFrom(const std::string& line) {
  const auto event = nlohmann::json::parse(line, nullptr, false);
  if (event.is_object() && textOf(event, "event") == "ready") {
    return {.failure = "", .engineProcess = processIn(event, "enginePid")};
  }
  if (event.is_object() && !textOf(event, "reason").empty()) {
    return {.failure = console::oneLine(textOf(event, "reason")), .engineProcess = 0};
  }
  return {.failure = "its process reported \"" + console::oneLine(line, longestQuotation) +
                     "\"; expected a line which says that it is ready",
          .engineProcess = 0};
}

std::optional<EndReport> endReportFrom(const std::string& line) {
  const auto event = nlohmann::json::parse(line, nullptr, false);
  if (!event.is_object() || textOf(event, "event") != "ended") return std::nullopt;
  return EndReport{.outcome = console::oneLine(textOf(event, "outcome")),
                   .reason = console::oneLine(textOf(event, "reason"))};
}

}  // namespace qor::programs
