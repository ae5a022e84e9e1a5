#include "engines/sdk/EngineDocument.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "engines/sdk/JsonNesting.h"
#include "engines/sdk/PercentEncoding.h"
#include "engines/sdk/Quotation.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

namespace {

using Json = nlohmann::json;

constexpr std::string_view expectedObject = R"(an object such as {"engine": "media", "input": "FILE"})";
constexpr const char* engineKey = "engine";

std::string listed(const std::vector<std::string>& names) {
  std::vector<std::string> quotedNames;
  quotedNames.reserve(names.size());
  for (const auto& name : names) quotedNames.push_back(fmt::format("{:?}", name));
  return fmt::format("{}", fmt::join(quotedNames, ", "));
}

Json parse(const std::string& text) {
  if (isNestedDeeper(text, deepestNesting)) {
    refuseDocument(
        fmt::format("it is nested more than {} levels deep; expected {}", deepestNesting, expectedObject));
  }
  try {
    return Json::parse(text);
  } catch (const Json::parse_error& error) {
    const std::size_t position = error.byte == 0 ? 0 : std::min(error.byte - 1, text.size());
    refuseDocument(fmt::format(
        "invalid JSON at byte {}, {}; expected {}", position,
        position == text.size() ? "where the text ends" : quoteText(std::string_view(text).substr(position)),
        expectedObject));
  } catch (const Json::out_of_range& error) {
    // The library's text ends with the number, in single quotes.
    std::string_view number = error.what();
    number.remove_prefix(number.find('\'') + 1);
    if (number.ends_with('\'')) number.remove_suffix(1);
    refuseDocument(fmt::format("the number {} is too large; expected {}", quoteText(number), expectedObject));
  }
}

/// The object and the engine that it names.
std::pair<Json, std::string> parseFor(const std::string& text, const std::vector<std::string>& names) {
  Json json = parse(text);
  if (!json.is_object()) refuseDocument(fmt::format("it is {}; expected an object", quoteJson(json)));
  const std::string expected = names.empty() ? "expected the name of an engine, but none is registered"
                                             : "expected one of " + listed(names);
  const auto engine = json.find(engineKey);
  if (engine == json.end()) {
    refuseDocument(fmt::format(R"(the object {} has no "engine"; {})", quoteJson(json), expected));
  }
  if (!engine->is_string() ||
      std::find(names.begin(), names.end(), engine->get_ref<const std::string&>()) == names.end()) {
    refuseDocument(fmt::format(R"("engine" is {}; {})", quoteJson(*engine), expected));
  }
  auto name = engine->get<std::string>();
  return {std::move(json), std::move(name)};
}

/// A text that is not empty and has no null characters; refuses any other value.
std::string textIn(const std::string& key, const Json& value) {
  if (!value.is_string() || value.get_ref<const std::string&>().empty()) {
    refuseDocument(fmt::format("{:?} is {}; expected a string that is not empty", key, quoteJson(value)));
  }
  auto text = value.get<std::string>();
  if (text.find('\0') != std::string::npos) {
    refuseDocument(
        fmt::format("{:?} is {}; expected a string without null characters", key, quoteJson(value)));
  }
  return text;
}

/// A text, or the bytes of an object that contains them percent-encoded.
std::string locationIn(const std::string& key, const Json& value) {
  if (value.is_string()) return textIn(key, value);
  const bool isEncoded = value.is_object() && value.size() == 1 && value.contains(percentEncodedKey) &&
                         value.at(percentEncodedKey).is_string();
  const auto bytes =
      isEncoded ? percentDecoded(value.at(percentEncodedKey).get_ref<const std::string&>()) : std::nullopt;
  if (!bytes || bytes->empty() || bytes->find('\0') != std::string::npos) {
    refuseDocument(
        fmt::format("{:?} is {}; expected a string that is not empty, or {{{:?}: \"caf%E9.mov\"}} for a name "
                    "that is not UTF-8",
                    key, quoteJson(value), percentEncodedKey));
  }
  return *bytes;
}

template <class Held>
Held defaultOf(const ManualKey& key) {
  return key.defaultValue ? std::get<Held>(*key.defaultValue) : Held{};
}

std::size_t choiceNumbered(const ManualKey& key, const std::string& name) {
  const auto found = std::find(key.choices.begin(), key.choices.end(), name);
  if (found == key.choices.end()) {
    refuseDocument(
        fmt::format("{:?} is {}; expected one of {}", key.name, quoteText(name), listed(key.choices)));
  }
  return static_cast<std::size_t>(found - key.choices.begin());
}

}  // namespace

/// Reads objects by the keys of a manual.
class DocumentReader {
 public:
  /// `place` names the object in error texts; `others` are valid keys that are not read here.
  static DocumentValues read(const Json& object, const std::string& place, const std::vector<ManualKey>& keys,
                             std::vector<std::string> others) {
    if (!object.is_object()) {
      refuseDocument(fmt::format("{} is {}; expected an object", place, quoteJson(object)));
    }
    auto known = std::move(others);
    for (const auto& key : keys) known.push_back(key.name);
    for (const auto& [name, value] : object.items()) {
      if (std::find(known.begin(), known.end(), name) == known.end()) {
        refuseDocument(fmt::format("{} has the unknown key {}; expected one of {}", place, quoteText(name),
                                   listed(known)));
      }
    }
    DocumentValues values;
    for (const auto& key : keys) {
      const auto found = object.find(key.name);
      if (found == object.end() && key.isRequired) {
        refuseDocument(fmt::format("{} {} has no {:?}; expected {}", place, quoteJson(object), key.name,
                                   expectation(key.type)));
      }
      values.values_[key.name] = found == object.end() ? defaultValue(key) : givenValue(key, *found);
    }
    return values;
  }

 private:
  using Value = DocumentValues::Value;

  static std::string_view expectation(KeyType type) {
    switch (type) {
      case KeyType::Text:
      case KeyType::Location:
      case KeyType::Choice:
        return "a string";
      case KeyType::Flag:
        return "true or false";
      case KeyType::Count:
        return "a whole number from 0 on";
      case KeyType::Object:
        return "an object";
    }
    return "another type";
  }

  [[noreturn]] static void refuse(const ManualKey& key, const Json& value) {
    refuseDocument(fmt::format("{:?} is {}; expected {}", key.name, quoteJson(value), expectation(key.type)));
  }

  static Value givenValue(const ManualKey& key, const Json& json) {
    Value value{.type = key.type, .quotation = quoteJson(json)};
    switch (key.type) {
      case KeyType::Text:
        value.text = textIn(key.name, json);
        break;
      case KeyType::Location:
        value.text = locationIn(key.name, json);
        break;
      case KeyType::Flag:
        if (!json.is_boolean()) refuse(key, json);
        value.flag = json.get<bool>();
        break;
      case KeyType::Count:
        if (!json.is_number_unsigned()) refuse(key, json);
        value.count = json.get<std::uint64_t>();
        break;
      case KeyType::Choice:
        value.text = textIn(key.name, json);
        value.choice = choiceNumbered(key, value.text);
        break;
      case KeyType::Object:
        value.object =
            std::make_shared<DocumentValues>(read(json, fmt::format("{:?}", key.name), key.keys, {}));
        break;
    }
    return value;
  }

  static Value defaultValue(const ManualKey& key) {
    Value value{.type = key.type};
    switch (key.type) {
      case KeyType::Text:
      case KeyType::Location:
        value.text = defaultOf<std::string>(key);
        break;
      case KeyType::Flag:
        value.flag = defaultOf<bool>(key);
        break;
      case KeyType::Count:
        value.count = defaultOf<std::uint64_t>(key);
        break;
      case KeyType::Choice:
        value.text = key.defaultValue ? defaultOf<std::string>(key) : key.choices.at(0);
        value.choice = choiceNumbered(key, value.text);
        break;
      case KeyType::Object:
        value.object = std::make_shared<DocumentValues>(read(Json::object(), key.name, key.keys, {}));
        break;
    }
    return value;
  }
};

const DocumentValues::Value& DocumentValues::value(const std::string& key) const {
  const auto found = values_.find(key);
  if (found == values_.end()) throw std::logic_error(fmt::format("the manual has no key {:?}", key));
  return found->second;
}

const DocumentValues::Value& DocumentValues::valueOf(const std::string& key, KeyType type) const {
  const auto& found = value(key);
  if (found.type != type) throw std::logic_error(fmt::format("{:?} has another type in the manual", key));
  return found;
}

bool DocumentValues::isGiven(const std::string& key) const { return !value(key).quotation.empty(); }

const std::string& DocumentValues::text(const std::string& key) const {
  const auto& found = value(key);
  const bool isText =
      found.type == KeyType::Text || found.type == KeyType::Location || found.type == KeyType::Choice;
  return isText ? found.text : valueOf(key, KeyType::Text).text;
}

bool DocumentValues::flag(const std::string& key) const { return valueOf(key, KeyType::Flag).flag; }

std::uint64_t DocumentValues::count(const std::string& key) const {
  return valueOf(key, KeyType::Count).count;
}

std::size_t DocumentValues::choiceNumber(const std::string& key) const {
  return valueOf(key, KeyType::Choice).choice;
}

const DocumentValues& DocumentValues::object(const std::string& key) const {
  return *valueOf(key, KeyType::Object).object;
}

const std::string& DocumentValues::quoted(const std::string& key) const { return value(key).quotation; }

DocumentValues readDocument(const std::string& text, const EngineManual& manual) {
  const auto [json, name] = parseFor(text, {manual.name});
  return DocumentReader::read(json, "the object", manual.keys, {engineKey});
}

std::string engineNamedIn(const std::string& text, const std::vector<std::string>& names) {
  return parseFor(text, names).second;
}

void refuseDocument(const std::string& what) { throw tamb::TAMBRuntimeError("Engine description: " + what); }

}  // namespace qor::engines
