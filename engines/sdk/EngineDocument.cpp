#include "engines/sdk/EngineDocument.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <utility>

#include "engines/sdk/JsonNesting.h"
#include "engines/sdk/PercentEncoding.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

namespace {

using Json = nlohmann::json;

constexpr std::size_t longestQuotation = 60;
/// Objects and arrays in each other. A description needs two; quoting takes stack for each.
constexpr int deepestNesting = 32;

constexpr std::string_view expectedObject = R"(an object such as {"engine": "media", "input": "FILE"})";

[[noreturn]] void fail(const std::string& text) {
  throw tamb::TAMBRuntimeError("Engine description: " + text);
}

std::string quoteText(std::string_view text) {
  return text.size() <= longestQuotation ? fmt::format("{:?}", text)
                                         : fmt::format("{:?}...", text.substr(0, longestQuotation));
}

std::string quoteJson(const Json& value) {
  auto text = value.dump(-1, ' ', true, Json::error_handler_t::replace);
  return text.size() <= longestQuotation ? text : text.substr(0, longestQuotation) + "...";
}

template <class Names>
std::string listed(const Names& names) {
  std::vector<std::string> quotedNames;
  quotedNames.reserve(names.size());
  for (const auto& name : names) {
    quotedNames.push_back(fmt::format("{:?}", name));
  }
  return fmt::format("{}", fmt::join(quotedNames, ", "));
}

Json parse(const std::string& text) {
  if (isNestedDeeper(text, deepestNesting)) {
    fail(fmt::format("it is nested more than {} deep; expected {}", deepestNesting, expectedObject));
  }
  try {
    return Json::parse(text);
  } catch (const Json::parse_error& error) {
    const std::size_t position = error.byte == 0 ? 0 : std::min(error.byte - 1, text.size());
    fail(fmt::format(
        "it is not JSON from byte {} on, {}; expected {}", position,
        position == text.size() ? "where it ends" : quoteText(std::string_view(text).substr(position)),
        expectedObject));
  } catch (const Json::out_of_range& error) {
    // Its text ends in the number, in single quotes.
    std::string_view number = error.what();
    number.remove_prefix(number.find('\'') + 1);
    if (number.ends_with('\'')) number.remove_suffix(1);
    fail(fmt::format("it holds {}, a number that is too large; expected {}", quoteText(number),
                     expectedObject));
  }
}

/// The keys of one JSON object, each of which has to be known.
class Fields {
 public:
  /// `place` is how texts call the object.
  Fields(const Json& object, std::string place, const std::vector<std::string>& known)
      : object_(object), place_(std::move(place)) {
    if (!object.is_object()) {
      fail(fmt::format("{} is {}; expected an object", place_, quoteJson(object)));
    }
    for (const auto& [key, value] : object.items()) {
      if (std::find(known.begin(), known.end(), key) == known.end()) {
        fail(
            fmt::format("{} has the unknown key {}; expected are {}", place_, quoteText(key), listed(known)));
      }
    }
  }

  std::string required(const std::string& key) const {
    if (!object_.contains(key)) {
      fail(fmt::format("{} {} has no {:?}; expected a string", place_, quoteJson(object_), key));
    }
    return text(key);
  }

  /// Empty when the key is not there.
  std::string text(const std::string& key) const {
    if (!object_.contains(key)) {
      return {};
    }
    const Json& value = object_.at(key);
    if (!value.is_string() || value.get_ref<const std::string&>().empty()) {
      fail(fmt::format("{:?} is {}; expected a string that is not empty", key, quoteJson(value)));
    }
    auto result = value.get<std::string>();
    if (result.find('\0') != std::string::npos) {
      fail(fmt::format("{:?} is {}; expected a string without null characters", key, quoteJson(value)));
    }
    return result;
  }

  std::string requiredLocation(const std::string& key) const {
    return object_.contains(key) ? location(key) : required(key);
  }

  /// A text, or the bytes of an object that holds them percent-encoded; empty when the key is not there.
  std::string location(const std::string& key) const {
    if (!object_.contains(key) || object_.at(key).is_string()) {
      return text(key);
    }
    const Json& value = object_.at(key);
    const bool isEncoded = value.is_object() && value.size() == 1 && value.contains(percentEncodedKey) &&
                           value.at(percentEncodedKey).is_string();
    const auto bytes =
        isEncoded ? percentDecoded(value.at(percentEncodedKey).get_ref<const std::string&>()) : std::nullopt;
    if (!bytes || bytes->empty() || bytes->find('\0') != std::string::npos) {
      fail(fmt::format(
          "{:?} is {}; expected a string that is not empty, or {{{:?}: \"caf%E9.mov\"}} for a name "
          "that is not UTF-8",
          key, quoteJson(value), percentEncodedKey));
    }
    return *bytes;
  }

  bool flag(const std::string& key) const {
    if (!object_.contains(key)) {
      return false;
    }
    const Json& value = object_.at(key);
    if (!value.is_boolean()) {
      fail(fmt::format("{:?} is {}; expected true or false", key, quoteJson(value)));
    }
    return value.get<bool>();
  }

  std::uint64_t count(const std::string& key) const {
    if (!object_.contains(key)) {
      return 0;
    }
    const Json& value = object_.at(key);
    if (!value.is_number_unsigned()) {
      fail(fmt::format("{:?} is {}; expected a whole number from 0 on", key, quoteJson(value)));
    }
    return value.get<std::uint64_t>();
  }

  /// The enumerator that the text names; enumerators are numbered in the order of the names.
  template <class Enumeration>
  Enumeration oneOf(const std::string& key, const std::vector<std::string>& names,
                    Enumeration otherwise) const {
    if (!object_.contains(key)) {
      return otherwise;
    }
    const auto name = text(key);
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
      fail(fmt::format("{:?} is {}; expected one of {}", key, quoteText(name), listed(names)));
    }
    return static_cast<Enumeration>(found - names.begin());
  }

 private:
  const Json& object_;
  const std::string place_;
};

MediaDocument readMedia(const Json& json) {
  const Fields fields(json, "the object",
                      {"engine", "input", "output", "audioFilter", "videoFilter", "loudness", "settings",
                       "realTime", "startPaused"});
  MediaDocument document;
  document.input = fields.requiredLocation("input");
  document.output = fields.location("output");
  document.audioFilter = fields.text("audioFilter");
  document.videoFilter = fields.text("videoFilter");
  document.loudness = fields.flag("loudness");
  document.realTime = fields.flag("realTime");
  document.startPaused = fields.flag("startPaused");
  if (json.contains("settings")) {
    const Fields settings(json.at("settings"), R"("settings")",
                          {"videoCodec", "audioCodec", "container", "onError"});
    document.settings.videoCodec = settings.text("videoCodec");
    document.settings.audioCodec = settings.text("audioCodec");
    document.settings.container = settings.text("container");
    document.onError = settings.oneOf("onError", {"skip", "fail"}, OnError::Skip);
    const auto& writing = document.settings;
    if (document.output.empty() && !(writing.videoCodec + writing.audioCodec + writing.container).empty()) {
      fail(fmt::format(R"("settings" are {}, but there is no "output"; expected both or neither)",
                       quoteJson(json.at("settings"))));
    }
  }
  return document;
}

TestDocument readTest(const Json& json) {
  const Fields fields(json, "the object", {"engine", "behaviour", "when", "notifications", "prints"});
  TestDocument document;
  document.behaviour = fields.oneOf(
      "behaviour", {"run", "ignoreStop", "crash", "abort", "kill", "exit", "freeze", "stall", "throw"},
      TestBehaviour::Run);
  document.when = fields.oneOf("when", {"construct", "run", "command"}, TestMoment::Run);
  document.notifications = fields.count("notifications");
  document.prints = fields.count("prints");
  return document;
}

}  // namespace

EngineDocument parseEngineDocument(const std::string& text, OfferedEngines offered) {
  const Json json = parse(text);
  if (!json.is_object()) {
    fail(fmt::format("it is {}; expected an object", quoteJson(json)));
  }
  if (!json.contains("engine")) {
    fail(fmt::format(R"(the object {} has no "engine"; expected one of {})", quoteJson(json),
                     listed(engineNames(offered))));
  }
  const Json& engine = json.at("engine");
  if (engine == "media") {
    return readMedia(json);
  }
  if (engine == "test" && offered == OfferedEngines::WithTestEngine) {
    return readTest(json);
  }
  fail(fmt::format(R"("engine" is {}; expected one of {})", quoteJson(engine), listed(engineNames(offered))));
}

std::vector<std::string> engineNames(OfferedEngines offered) {
  if (offered == OfferedEngines::Shipped) return {"media"};
  return {"media", "test"};
}

}  // namespace qor::engines
