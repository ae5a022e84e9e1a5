#include "programs/service/ReadyLine.h"

#include <nlohmann/json.hpp>

#include "programs/support/OneLine.h"

namespace qor::programs {

namespace {

constexpr std::size_t longestQuotation = 200;

/// Empty unless the object has that key, with a text.
std::string textOf(const nlohmann::json& object, const char* key) {
  const auto value = object.find(key);
  return value != object.end() && value->is_string() ? value->get<std::string>() : "";
}

}  // namespace

std::string readyLineFailure(const std::string& line) {
  const auto event = nlohmann::json::parse(line, nullptr, false);
  if (event.is_object() && textOf(event, "event") == "ready") return {};
  if (event.is_object() && !textOf(event, "reason").empty()) return oneLine(textOf(event, "reason"));
  return "its process said \"" + oneLine(line, longestQuotation) + "\" where it was to say that it is ready";
}

}  // namespace qor::programs
