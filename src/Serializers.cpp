#include "Serializers.h"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

namespace qor::multiprocess_communication {

namespace {

using tamb::IParametersCollectionInstance;
using tamb::IParametersCollectionPrototype;
using tamb::TambType;

/// A writing operation, as its reports name it.
struct Writer {
  const char* name;
  int line;
};
constexpr Writer prototypeWriter{"Serializers::ParametersCollectionPrototypeToProtoBuf", 139};
constexpr Writer instanceWriter{"Serializers::ParametersCollectionInstanceToProtoBuf", 281};

/// The operations of a prototype for the keys of each type.
struct Defaults {
  const IParametersCollectionPrototype& of;
  bool boolean(const std::string& key) const { return of.GetBoolDefault(key); }
  std::int64_t int64(const std::string& key) const { return of.GetInt64Default(key); }
  std::uint64_t uint64(const std::string& key) const { return of.GetUint64Default(key); }
  double real(const std::string& key) const { return of.GetDoubleDefault(key); }
  std::string utf8String(const std::string& key) const { return of.GetUTF8StringDefault(key); }
};

/// The operations of an instance for the keys of each type.
struct Values {
  const IParametersCollectionInstance& of;
  bool boolean(const std::string& key) const { return of.GetBool(key); }
  std::int64_t int64(const std::string& key) const { return of.GetInt64(key); }
  std::uint64_t uint64(const std::string& key) const { return of.GetUint64(key); }
  double real(const std::string& key) const { return of.GetDouble(key); }
  std::string utf8String(const std::string& key) const { return of.GetUTF8String(key); }
};

template <class KeyValue, class Value>
void set(KeyValue& parameter, const std::string& key, Value&& value) {
  parameter.set_key(key);
  parameter.set_value(std::forward<Value>(value));
}

template <class Source>
void write(const Source& source, proto::ParametersCollectionCommon& data, const Writer& writer) {
  for (const auto& [key, type] : source.of.GetKeysAndTypes()) {
    switch (type) {
      case TambType::Bool:
        set(*data.add_boolparams(), key, source.boolean(key));
        break;
      case TambType::Int64:
        set(*data.add_int64params(), key, source.int64(key));
        break;
      case TambType::Uint64:
        set(*data.add_uint64params(), key, source.uint64(key));
        break;
      case TambType::Double:
        set(*data.add_doubleparams(), key, source.real(key));
        break;
      case TambType::UTF8String:
        set(*data.add_utf8stringparams(), key, source.utf8String(key));
        break;
      default:
        Checks("src/Serializers")
            .never(std::string(writer.name) + ": Type not implemented: " + tamb::ToString(type), writer.line);
    }
  }
}

void write(const std::shared_ptr<const IParametersCollectionPrototype>& prototype,
           proto::ParametersCollectionPrototype& message) {
  if (!prototype) return;
  // Sets an empty list, too: it is a required field.
  write(Defaults{*prototype}, *message.mutable_data(), prototypeWriter);
}

/// Declares each key that it is called with.
struct AddKey {
  IParametersCollectionPrototype& to;
  void operator()(const std::string& key, bool value) const { to.AddBoolKey(key, value, ""); }
  void operator()(const std::string& key, std::int64_t value) const { to.AddInt64Key(key, value, ""); }
  void operator()(const std::string& key, std::uint64_t value) const { to.AddUint64Key(key, value, ""); }
  void operator()(const std::string& key, double value) const { to.AddDoubleKey(key, value, ""); }
  void operator()(const std::string& key, const std::string& value) const {
    to.AddUTF8StringKey(key, value, "");
  }
};

/// Sets each key that it is called with.
struct SetValue {
  IParametersCollectionInstance& of;
  void operator()(const std::string& key, bool value) const { of.SetBool(key, value); }
  void operator()(const std::string& key, std::int64_t value) const { of.SetInt64(key, value); }
  void operator()(const std::string& key, std::uint64_t value) const { of.SetUint64(key, value); }
  void operator()(const std::string& key, double value) const { of.SetDouble(key, value); }
  void operator()(const std::string& key, const std::string& value) const { of.SetUTF8String(key, value); }
};

/// Calls `take` with each key and its value, list by list. UTF-16 texts are not carried.
template <class Take>
void read(const proto::ParametersCollectionCommon& data, const Take& take) {
  for (const auto& parameter : data.boolparams()) take(parameter.key(), parameter.value());
  for (const auto& parameter : data.int64params()) take(parameter.key(), parameter.value());
  for (const auto& parameter : data.uint64params()) take(parameter.key(), parameter.value());
  for (const auto& parameter : data.doubleparams()) take(parameter.key(), parameter.value());
  for (const auto& parameter : data.utf8stringparams()) take(parameter.key(), parameter.value());
}

}  // namespace

std::string EngineStatus::ToString(EngineStatus status) {
  switch (status) {
    case Running:
      return "Running";
    case Idle:
      return "Idle";
    case EndOfLife:
      return "EndOfLife";
    case Undefined:
      break;
  }
  return "Undefined";
}

proto::ParametersCollectionPrototype Serializers::ParametersCollectionPrototypeToProtoBuf(
    // NOLINTNEXTLINE(performance-unnecessary-value-param): as the two are known by others
    std::shared_ptr<const IParametersCollectionPrototype> prototype) {
  proto::ParametersCollectionPrototype message;
  write(prototype, message);
  return message;
}

proto::ParametersCollectionInstance Serializers::ParametersCollectionInstanceToProtoBuf(
    // NOLINTNEXTLINE(performance-unnecessary-value-param)
    std::shared_ptr<const IParametersCollectionInstance> instance) {
  proto::ParametersCollectionInstance message;
  ParametersCollectionInstanceToProtoBuf(instance, message);
  return message;
}

void Serializers::ParametersCollectionInstanceToProtoBuf(
    const std::shared_ptr<const IParametersCollectionInstance>& instance,
    proto::ParametersCollectionInstance& message) {
  message.Clear();
  if (!instance) return;
  write(instance->GetPrototype(), *message.mutable_prototype());
  write(Values{*instance}, *message.mutable_data(), instanceWriter);
}

std::shared_ptr<IParametersCollectionPrototype> Serializers::ParametersCollectionPrototypeFromProtoBuf(
    const proto::ParametersCollectionPrototype& message) {
  auto prototype = tamb::CreateParametersCollectionPrototype();
  read(message.data(), AddKey{*prototype});
  return prototype;
}

std::shared_ptr<IParametersCollectionInstance> Serializers::ParametersCollectionInstanceFromProtoBuf(
    const proto::ParametersCollectionInstance& message) {
  auto instance = tamb::CreateParametersCollectionInstance(
      ParametersCollectionPrototypeFromProtoBuf(message.prototype()));
  read(message.data(), SetValue{*instance});
  return instance;
}

std::shared_ptr<const IParametersCollectionInstance> Serializers::ReceivedParameters(
    const proto::ParametersCollectionInstance& message, const Checks& checks, const char* failure, int line) {
  try {
    return ParametersCollectionInstanceFromProtoBuf(message);
  } catch (const std::runtime_error& error) {
    checks.log(failure + std::string(error.what()), line);
    return nullptr;
  }
}

void Serializers::MediaTimeToProtoBuf(const tamb::MediaTime& time, proto::MediaTime& message) {
  message.mutable_editrate()->set_numerator(time.GetEditRate().GetNumerator());
  message.mutable_editrate()->set_denominator(time.GetEditRate().GetDenominator());
  message.set_timenumber(time.GetTimeNumber());
}

tamb::MediaTime Serializers::MediaTimeFromProtoBuf(const proto::MediaTime& message) {
  const proto::EditRate& rate = message.editrate();
  return {tamb::EditRate(rate.denominator(), rate.numerator()), message.timenumber(), nullptr};
}

}  // namespace qor::multiprocess_communication
