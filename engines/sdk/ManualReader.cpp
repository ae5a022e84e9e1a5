#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "engines/sdk/EngineManual.h"
#include "engines/sdk/JsonNesting.h"
#include "engines/sdk/Quotation.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

namespace {

using Json = nlohmann::json;
using tamb::TambType;

constexpr std::array keyTypes{KeyType::Text,  KeyType::Location, KeyType::Flag,
                              KeyType::Count, KeyType::Choice,   KeyType::Object};

[[noreturn]] void refuse(const std::string& what) { throw tamb::TAMBRuntimeError("Engine manual: " + what); }

/// The member as the requested type; a default if it is missing.
template <class Value>
Value member(const Json& object, const char* name, bool (Json::*isOfType)() const noexcept,
             const char* expected) {
  const auto found = object.find(name);
  if (found == object.end()) return {};
  if (!((*found).*isOfType)()) {
    refuse(fmt::format("{:?} is {}; expected {}", name, quoteJson(*found), expected));
  }
  return found->get<Value>();
}

/// Rejects control characters, because manuals are printed to terminals.
std::string requireOneLine(std::string text) {
  if (!isOneLine(text)) refuse(fmt::format("it holds {}; expected one line of text", quoteJson(text)));
  return text;
}

std::string textIn(const Json& object, const char* name) {
  return requireOneLine(member<std::string>(object, name, &Json::is_string, "a string"));
}

bool flagIn(const Json& object, const char* name) {
  return member<bool>(object, name, &Json::is_boolean, "true or false");
}

std::string requiredTextIn(const Json& object, const char* name) {
  auto text = textIn(object, name);
  if (text.empty()) refuse(fmt::format("{} has no {:?}", quoteJson(object), name));
  return text;
}

/// The objects of a list, each read by `read`.
template <class Read>
auto listIn(const Json& object, const char* name, const Read& read) {
  std::vector<decltype(read(object))> list;
  for (const auto& each : member<Json::array_t>(object, name, &Json::is_array, "a list")) {
    if (!each.is_object()) refuse(fmt::format("{:?} holds {}; expected objects", name, quoteJson(each)));
    list.push_back(read(each));
  }
  return list;
}

std::vector<std::string> choicesIn(const Json& object) {
  std::vector<std::string> choices;
  for (const auto& each : member<Json::array_t>(object, "choices", &Json::is_array, "a list of strings")) {
    if (!each.is_string()) refuse(fmt::format("\"choices\" holds {}; expected strings", quoteJson(each)));
    choices.push_back(requireOneLine(each.get<std::string>()));
  }
  return choices;
}

std::optional<NotificationValue> defaultIn(const Json& object) {
  const auto value = object.value("default", Json());
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number_unsigned()) return value.get<std::uint64_t>();
  if (value.is_number_integer()) return value.get<std::int64_t>();
  if (value.is_number()) return value.get<double>();
  if (value.is_string()) return requireOneLine(value.get<std::string>());
  return std::nullopt;
}

ManualKey keyFrom(const Json& object) {
  const auto type = requiredTextIn(object, "type");
  const auto* const found =
      std::ranges::find_if(keyTypes, [&](KeyType each) { return keyTypeName(each) == type; });
  if (found == keyTypes.end()) {
    refuse(
        fmt::format("\"type\" is {}; expected \"string\", \"location\", \"boolean\", \"count\", "
                    "\"choice\" or \"object\"",
                    quoteJson(type)));
  }
  return {.name = requiredTextIn(object, "name"),
          .type = *found,
          .summary = textIn(object, "summary"),
          .isRequired = flagIn(object, "required"),
          .defaultValue = defaultIn(object),
          .choices = choicesIn(object),
          .keys = listIn(object, "keys", keyFrom)};
}

ManualValue valueFrom(const Json& object) {
  const auto name = requiredTextIn(object, "type");
  auto type = TambType::Undefined;
  while (type != TambType::TambType_end_delimiter && tamb::ToString(type) != name) {
    type = static_cast<TambType>(static_cast<int>(type) + 1);
  }
  if (type == TambType::Undefined || type == TambType::TambType_end_delimiter) {
    refuse(fmt::format(R"("type" is {}; expected a type of parameters such as "Int64")", quoteJson(name)));
  }
  return {.name = requiredTextIn(object, "name"), .type = type, .summary = textIn(object, "summary")};
}

ManualCommand commandFrom(const Json& object) {
  return {.name = requiredTextIn(object, "name"),
          .summary = textIn(object, "summary"),
          .arguments = listIn(object, "arguments", valueFrom)};
}

ManualNotification notificationFrom(const Json& object) {
  return {.line = requiredTextIn(object, "line"),
          .summary = textIn(object, "summary"),
          .values = listIn(object, "values", valueFrom),
          .isAnError = flagIn(object, "isAnError")};
}

}  // namespace

EngineManual manualFrom(std::string_view text) {
  if (isNestedDeeper(text, deepestNesting)) {
    refuse(fmt::format("it is nested more than {} levels deep", deepestNesting));
  }
  const auto json = Json::parse(text, nullptr, false);
  if (!json.is_object()) {
    refuse(json.is_discarded() ? "it is not JSON"
                               : fmt::format("it is {}; expected an object", quoteJson(json)));
  }
  return {.name = requiredTextIn(json, "name"),
          .summary = textIn(json, "summary"),
          .step = requiredTextIn(json, "step"),
          .keys = listIn(json, "keys", keyFrom),
          .commands = listIn(json, "commands", commandFrom),
          .notifications = listIn(json, "notifications", notificationFrom)};
}

}  // namespace qor::engines
