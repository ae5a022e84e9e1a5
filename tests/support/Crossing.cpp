#include "tests/support/Crossing.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <utility>
#include <variant>
#include <vector>

namespace qor::test {

namespace {

/// A double identified by its bits: a NaN equals itself, and zeros of different signs differ.
struct Real {
  std::uint64_t bits;
  bool operator==(const Real&) const = default;
};
using Value = std::variant<bool, std::int64_t, std::uint64_t, Real, std::string>;

struct Parameter {
  std::string key;
  tamb::TambType type;
  Value byDefault;
  Value value;
  bool operator==(const Parameter&) const = default;
};

std::string shown(bool value) { return value ? "true" : "false"; }
std::string shown(std::int64_t value) { return std::to_string(value); }
std::string shown(std::uint64_t value) { return std::to_string(value); }
std::string shown(std::uint32_t value) { return std::to_string(value); }
std::string shown(Real value) {
  return fmt::format("{} (bits {:016x})", std::bit_cast<double>(value.bits), value.bits);
}
std::string shown(const std::string& value) { return fmt::format("{:?}", value); }
std::string shown(const Value& value) {
  return std::visit([](const auto& held) { return shown(held); }, value);
}
std::string shown(const Parameter& parameter) {
  return fmt::format("{:?} of {}: {}, by default {}", parameter.key, tamb::ToString(parameter.type),
                     shown(parameter.value), shown(parameter.byDefault));
}
std::string shown(const tamb::EditRate& rate) {
  return fmt::format("{}/{}", rate.GetNumerator(), rate.GetDenominator());
}

Value valueIn(const tamb::IParametersCollectionInstance& instance, const std::string& key,
              tamb::TambType type) {
  switch (type) {
    case tamb::TambType::Bool:
      return instance.GetBool(key);
    case tamb::TambType::Int64:
      return instance.GetInt64(key);
    case tamb::TambType::Uint64:
      return instance.GetUint64(key);
    case tamb::TambType::Double:
      return Real{std::bit_cast<std::uint64_t>(instance.GetDouble(key))};
    case tamb::TambType::UTF8String:
      return instance.GetUTF8String(key);
    default:
      throw std::invalid_argument("a key whose type is not carried: " + key);
  }
}

Value defaultIn(const tamb::IParametersCollectionPrototype& prototype, const std::string& key,
                tamb::TambType type) {
  switch (type) {
    case tamb::TambType::Bool:
      return prototype.GetBoolDefault(key);
    case tamb::TambType::Int64:
      return prototype.GetInt64Default(key);
    case tamb::TambType::Uint64:
      return prototype.GetUint64Default(key);
    case tamb::TambType::Double:
      return Real{std::bit_cast<std::uint64_t>(prototype.GetDoubleDefault(key))};
    case tamb::TambType::UTF8String:
      return prototype.GetUTF8StringDefault(key);
    default:
      throw std::invalid_argument("a key whose type is not carried: " + key);
  }
}

std::vector<Parameter> parametersOf(const tamb::IParametersCollectionInstance& instance) {
  std::vector<Parameter> parameters;
  for (const auto& [key, type] : instance.GetKeysAndTypes()) {
    parameters.push_back(
        {key, type, defaultIn(*instance.GetPrototype(), key, type), valueIn(instance, key, type)});
  }
  return parameters;
}

template <class T>
std::string difference(const char* what, const T& expected, const T& arrived) {
  if (expected == arrived) return {};
  return fmt::format("{}: expected {}, arrived {}", what, shown(expected), shown(arrived));
}

/// The first text that is not empty.
std::string firstOf(std::initializer_list<std::string> differences) {
  const auto* const found =
      std::find_if(differences.begin(), differences.end(), [](const auto& text) { return !text.empty(); });
  return found == differences.end() ? std::string() : *found;
}

std::string differenceOfTimes(const tamb::MediaTime& sent, const tamb::MediaTime& arrived) {
  const tamb::EditRate& rate = sent.GetEditRate();
  return firstOf({difference("edit rate", tamb::EditRate(rate.GetDenominator(), rate.GetNumerator()),
                             arrived.GetEditRate()),
                  difference("time number", sent.GetTimeNumber(), arrived.GetTimeNumber()),
                  difference("has a clock", false, arrived.GetClockInfo() != nullptr)});
}

std::string differenceOfCollections(
    const std::shared_ptr<const tamb::IParametersCollectionInstance>& sent,
    const std::shared_ptr<const tamb::IParametersCollectionInstance>& arrived) {
  if (!sent || !arrived) return difference("has a collection", sent != nullptr, arrived != nullptr);
  return differenceAfterCrossing(*sent, *arrived);
}

}  // namespace

std::string differenceAfterCrossing(const tamb::IParametersCollectionInstance& sent,
                                    const tamb::IParametersCollectionInstance& arrived) {
  std::vector<Parameter> expected = parametersOf(sent);
  // The supported types come in the order of their tags.
  std::stable_sort(expected.begin(), expected.end(),
                   [](const auto& left, const auto& right) { return left.type < right.type; });
  const std::vector<Parameter> found = parametersOf(arrived);
  for (std::size_t i = 0; i < std::min(expected.size(), found.size()); ++i) {
    if (expected[i] != found[i]) return difference("parameter", expected[i], found[i]);
  }
  if (expected.size() != found.size()) {
    return difference("number of parameters", std::uint64_t{expected.size()}, std::uint64_t{found.size()});
  }
  const auto prototype = arrived.GetPrototype();
  if (prototype->GetKeysAndTypes() != arrived.GetKeysAndTypes()) {
    return "the prototype that arrived has other keys than its instance";
  }
  for (const Parameter& parameter : found) {
    const std::string description = prototype->GetDescription(parameter.key);
    if (!description.empty()) return fmt::format("{:?} arrived described: {}", parameter.key, description);
  }
  return {};
}

std::string differenceAfterCrossing(const tamb::ICommandMessage& sent, const tamb::ICommandMessage& arrived) {
  return firstOf(
      {difference("command name", sent.GetCommandName(), arrived.GetCommandName()),
       difference("command id", sent.GetCommandId(), arrived.GetCommandId()),
       difference("workflow manager id", sent.GetWorkflowManagerId(), arrived.GetWorkflowManagerId()),
       difference("engine id", sent.GetEngineId(), arrived.GetEngineId()),
       difference("step id", sent.GetStepId(), arrived.GetStepId()),
       differenceOfTimes(sent.GetTime(), arrived.GetTime()),
       differenceOfCollections(sent.GetCommandArgs(), arrived.GetCommandArgs())});
}

std::string differenceAfterCrossing(const tamb::INotificationMessage& sent,
                                    const tamb::INotificationMessage& arrived) {
  if (arrived.GetNotificationId() == sent.GetNotificationId()) {
    return "the notification id is still " + shown(sent.GetNotificationId());
  }
  return firstOf(
      {difference("notification line", sent.GetNotificationLine(), arrived.GetNotificationLine()),
       difference("command id", sent.GetCommandId(), arrived.GetCommandId()),
       difference("workflow manager id", sent.GetWorkflowManagerId(), arrived.GetWorkflowManagerId()),
       difference("engine id", sent.GetEngineId(), arrived.GetEngineId()),
       difference("step id", sent.GetStepId(), arrived.GetStepId()),
       difference("is an error", false, arrived.IsAnError()),
       differenceOfTimes(sent.GetTime(), arrived.GetTime()),
       differenceOfCollections(sent.GetNotificationObject(), arrived.GetNotificationObject())});
}

}  // namespace qor::test
