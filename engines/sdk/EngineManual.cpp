#include "engines/sdk/EngineManual.h"

#include <fmt/format.h>

#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>
#include <variant>

#include "engines/sdk/NotificationNames.h"

namespace qor::engines {

namespace {

// Members in the order in which they are set.
using Json = nlohmann::ordered_json;

/// The column where the descriptions begin.
constexpr std::size_t textColumn = 24;

Json jsonOf(const NotificationValue& value) {
  return std::visit([](const auto& held) { return Json(held); }, value);
}

/// Null if the key has no default.
Json defaultOf(const ManualKey& key) {
  if (key.isRequired || key.type == KeyType::Object) return nullptr;
  if (key.defaultValue) return jsonOf(*key.defaultValue);
  if (key.type == KeyType::Flag) return false;
  if (key.type == KeyType::Count) return 0U;
  if (key.type == KeyType::Choice && !key.choices.empty()) return key.choices.front();
  return nullptr;
}

Json keysJson(const std::vector<ManualKey>& keys) {
  Json list = Json::array();
  for (const auto& key : keys) {
    Json json{{"name", key.name},
              {"type", keyTypeName(key.type)},
              {"required", key.isRequired},
              {"default", defaultOf(key)},
              {"summary", key.summary}};
    if (key.type == KeyType::Choice) json["choices"] = key.choices;
    if (key.type == KeyType::Object) json["keys"] = keysJson(key.keys);
    list.push_back(std::move(json));
  }
  return list;
}

Json valuesJson(const std::vector<ManualValue>& values) {
  Json list = Json::array();
  for (const auto& value : values) {
    list.push_back({{"name", value.name}, {"type", tamb::ToString(value.type)}, {"summary", value.summary}});
  }
  return list;
}

std::string dumped(const Json& json, int indent) {
  return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

/// Appends to a text in two columns: names and their descriptions.
class Page {
 public:
  void heading(std::string_view title) {
    fmt::format_to(std::back_inserter(text_), "{}{}:\n", text_.empty() ? "" : "\n", title);
  }
  void detail(std::string_view name, std::string_view value) {
    fmt::format_to(std::back_inserter(text_), "  {:<{}}{}\n", name, textColumn - 2, value);
  }
  void entry(std::size_t depth, std::string_view name, std::string_view summary) {
    const std::size_t indent = 2 + 2 * depth;
    fmt::format_to(std::back_inserter(text_), "{:{}}{:<{}}: {}\n", "", indent, name, textColumn - 2 - indent,
                   summary);
  }
  void remark(std::string_view remark) {
    fmt::format_to(std::back_inserter(text_), "{:{}}{}\n", "", textColumn, remark);
  }
  std::string text() && { return std::move(text_); }

 private:
  std::string text_;
};

std::string describe(const ManualKey& key) {
  std::string text = keyTypeName(key.type);
  if (key.type == KeyType::Choice) {
    std::vector<std::string> choices;
    for (const auto& choice : key.choices) choices.push_back(fmt::format("{:?}", choice));
    text = fmt::format("one of {}", fmt::join(choices, ", "));
  }
  if (key.isRequired) return text + ", required";
  if (const auto standard = defaultOf(key); !standard.is_null()) {
    text += ", default: " + dumped(standard, -1);
  }
  return text;
}

void appendKeys(Page& page, const std::vector<ManualKey>& keys, std::size_t depth) {
  for (const auto& key : keys) {
    page.entry(depth, key.name, key.summary);
    page.remark(describe(key));
    appendKeys(page, key.keys, depth + 1);
  }
}

void appendValues(Page& page, const std::vector<ManualValue>& values) {
  for (const auto& value : values) {
    page.remark(value.name + ": " + tamb::ToString(value.type) +
                (value.summary.empty() ? "" : " - " + value.summary));
  }
}

}  // namespace

std::string keyTypeName(KeyType type) {
  switch (type) {
    case KeyType::Text:
      return "string";
    case KeyType::Location:
      return "location";
    case KeyType::Flag:
      return "boolean";
    case KeyType::Count:
      return "count";
    case KeyType::Choice:
      return "choice";
    case KeyType::Object:
      return "object";
  }
  return "unknown";
}

std::vector<ManualNotification> commonNotifications() {
  const std::vector<ManualValue> answer{
      {.name = names::command, .summary = "The command's name"},
      {.name = names::reason, .summary = "Why it failed; empty if it did not"}};
  return {
      {.line = names::commandDone, .summary = "The command of this id was executed", .values = answer},
      {.line = names::commandFailed,
       .summary = "The command of this id was not executed",
       .values = answer,
       .isAnError = true},
      {.line = names::finished,
       .summary = "The run has ended and did not fail",
       .values = {{names::stopped, tamb::TambType::Bool, "Whether it was stopped"}}},
      {.line = names::failed,
       .summary = "The run has failed or was abandoned",
       .values = {{.name = names::reason}},
       .isAnError = true},
  };
}

EngineManual withCommonNotifications(EngineManual manual) {
  for (auto& common : commonNotifications()) manual.notifications.push_back(std::move(common));
  std::set<std::string> seen;
  std::erase_if(manual.notifications, [&](const auto& each) { return !seen.insert(each.line).second; });
  return manual;
}

std::string manualText(const EngineManual& manual) {
  Page page;
  page.heading("Engine");
  page.detail("Name", manual.name);
  page.detail("Summary", manual.summary);
  page.detail("Step", manual.step);
  page.heading("Description keys");
  page.entry(0, "engine", "The engine's name");
  page.remark(fmt::format("{:?}, required", manual.name));
  appendKeys(page, manual.keys, 0);
  page.heading("Commands");
  for (const auto& command : manual.commands) {
    page.entry(0, command.name, command.summary);
    appendValues(page, command.arguments);
  }
  if (manual.commands.empty()) page.remark("none");
  page.heading("Notifications");
  for (const auto& notification : manual.notifications) {
    page.entry(0, notification.line, notification.summary + (notification.isAnError ? " (an error)" : ""));
    appendValues(page, notification.values);
  }
  if (manual.notifications.empty()) page.remark("none");
  return std::move(page).text();
}

std::string manualJson(const EngineManual& manual) {
  Json commands = Json::array();
  for (const auto& command : manual.commands) {
    commands.push_back(
        {{"name", command.name}, {"summary", command.summary}, {"arguments", valuesJson(command.arguments)}});
  }
  Json notifications = Json::array();
  for (const auto& notification : manual.notifications) {
    notifications.push_back({{"line", notification.line},
                             {"isAnError", notification.isAnError},
                             {"summary", notification.summary},
                             {"values", valuesJson(notification.values)}});
  }
  const Json json{{"name", manual.name},  {"summary", manual.summary},
                  {"step", manual.step},  {"keys", keysJson(manual.keys)},
                  {"commands", commands}, {"notifications", notifications}};
  return dumped(json, 2);
}

}  // namespace qor::engines
