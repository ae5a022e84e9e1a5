#include <bit>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Serializers.h"
#include "fuzz/Reception.h"
#include "tamb/TAMBRuntimeError.h"

namespace {

namespace Serializers = qor::multiprocess_communication::Serializers;
namespace proto = qor::multiprocess_communication::proto;
using qor::fuzz::require;

/// A type and a value; a number is compared by its bits.
struct Parameter {
  tamb::TambType type;
  std::string value;
  bool operator==(const Parameter&) const = default;
};

struct Entry {
  Parameter byDefault;
  Parameter now;
  bool operator==(const Entry&) const = default;
};

using Entries = std::map<std::string, Entry>;

/// Calls `take` with each key and its parameter; returns false as soon as `take` does.
template <class Take>
bool all(const proto::ParametersCollectionCommon& data, const Take& take) {
  const auto allOf = [&](const auto& parameters, tamb::TambType type, const auto& textOf) {
    for (const auto& each : parameters) {
      if (!take(each.key(), Parameter{type, textOf(each.value())})) return false;
    }
    return true;
  };
  const auto number = [](auto value) { return std::to_string(value); };
  const auto bits = [](double value) { return std::to_string(std::bit_cast<std::uint64_t>(value)); };
  const auto text = [](const std::string& value) { return value; };
  return allOf(data.boolparams(), tamb::TambType::Bool, number) &&
         allOf(data.int64params(), tamb::TambType::Int64, number) &&
         allOf(data.uint64params(), tamb::TambType::Uint64, number) &&
         allOf(data.doubleparams(), tamb::TambType::Double, bits) &&
         allOf(data.utf8stringparams(), tamb::TambType::UTF8String, text);
}

/// The message's content; empty if it contradicts itself.
std::optional<Entries> entriesOf(const proto::ParametersCollectionInstance& message) {
  Entries entries;
  const auto declare = [&](const std::string& key, const Parameter& parameter) {
    return entries.emplace(key, Entry{parameter, parameter}).second;
  };
  const auto set = [&](const std::string& key, const Parameter& parameter) {
    const auto found = entries.find(key);
    if (found == entries.end() || found->second.now.type != parameter.type) return false;
    found->second.now = parameter;
    return true;
  };
  if (all(message.prototype().data(), declare) && all(message.data(), set)) return entries;
  return std::nullopt;
}

std::shared_ptr<tamb::IParametersCollectionInstance> read(
    const proto::ParametersCollectionInstance& message) {
  try {
    return Serializers::ParametersCollectionInstanceFromProtoBuf(message);
  } catch (const tamb::TAMBRuntimeError&) {
    return nullptr;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static proto::ParametersCollectionInstance message;
  static proto::ParametersCollectionInstance written;
  [[maybe_unused]] static const bool isSilent = (qor::fuzz::Silence::keep(), true);
  if (!message.ParseFromArray(data, static_cast<int>(size))) return 0;

  const auto said = entriesOf(message);
  const auto instance = read(message);
  require((instance != nullptr) == said.has_value(), "what contradicts itself is refused, and only that");
  if (!instance) return 0;
  Serializers::ParametersCollectionInstanceToProtoBuf(instance, written);
  require(written.IsInitialized(), "what was read can be written");
  require(entriesOf(written) == said, "what was read is what the message says");
  const auto again = read(written);
  require(again != nullptr, "what was written can be read");
  require(Serializers::ParametersCollectionInstanceToProtoBuf(again).SerializeAsString() ==
              written.SerializeAsString(),
          "what was written and read is the same");
  return 0;
}
