#include "tests/process/JsonMessages.h"

#include <bit>
#include <cstdint>
#include <stdexcept>

#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/NotificationMessage.h"

namespace qor::test {

namespace {

using Collection = std::shared_ptr<const tamb::IParametersCollectionInstance>;

double realFrom(const Json& bits) { return std::bit_cast<double>(bits.get<std::uint64_t>()); }
std::uint64_t bitsOf(double real) { return std::bit_cast<std::uint64_t>(real); }

Json describeParameter(const tamb::IParametersCollectionInstance& collection, const std::string& key,
                       tamb::TambType type) {
  const auto prototype = collection.GetPrototype();
  const auto parameter = [&](const auto& defaultValue, const auto& value) {
    return Json::array({tamb::ToString(type), key, defaultValue, value});
  };
  switch (type) {
    case tamb::TambType::Bool:
      return parameter(prototype->GetBoolDefault(key), collection.GetBool(key));
    case tamb::TambType::Int64:
      return parameter(prototype->GetInt64Default(key), collection.GetInt64(key));
    case tamb::TambType::Uint64:
      return parameter(prototype->GetUint64Default(key), collection.GetUint64(key));
    case tamb::TambType::Double:
      return parameter(bitsOf(prototype->GetDoubleDefault(key)), bitsOf(collection.GetDouble(key)));
    case tamb::TambType::UTF8String:
      return parameter(prototype->GetUTF8StringDefault(key), collection.GetUTF8String(key));
    default:
      throw std::runtime_error("no description for a parameter of type " + tamb::ToString(type));
  }
}

Json describeCollection(const Collection& collection) {
  if (!collection) return nullptr;
  Json parameters = Json::array();
  for (const auto& [key, type] : collection->GetKeysAndTypes()) {
    parameters.push_back(describeParameter(*collection, key, type));
  }
  return parameters;
}

void declare(tamb::IParametersCollectionPrototype& prototype, const Json& parameter) {
  const std::string type = parameter.at(0);
  const std::string key = parameter.at(1);
  const Json& value = parameter.at(2);
  if (type == "Bool") return prototype.AddBoolKey(key, value.get<bool>(), "");
  if (type == "Int32") return prototype.AddInt32Key(key, value.get<std::int32_t>(), "");
  if (type == "Int64") return prototype.AddInt64Key(key, value.get<std::int64_t>(), "");
  if (type == "Uint64") return prototype.AddUint64Key(key, value.get<std::uint64_t>(), "");
  if (type == "Double") return prototype.AddDoubleKey(key, realFrom(value), "");
  if (type == "UTF8String") return prototype.AddUTF8StringKey(key, value.get<std::string>(), "");
  throw std::runtime_error("no parameter can be made of type " + type);
}

void setValue(tamb::IParametersCollectionInstance& collection, const Json& parameter) {
  const std::string type = parameter.at(0);
  const std::string key = parameter.at(1);
  const Json& value = parameter.at(3);
  if (type == "Bool") collection.SetBool(key, value.get<bool>());
  if (type == "Int32") collection.SetInt32(key, value.get<std::int32_t>());
  if (type == "Int64") collection.SetInt64(key, value.get<std::int64_t>());
  if (type == "Uint64") collection.SetUint64(key, value.get<std::uint64_t>());
  if (type == "Double") collection.SetDouble(key, realFrom(value));
  if (type == "UTF8String") collection.SetUTF8String(key, value.get<std::string>());
}

Collection collectionFrom(const Json& parameters) {
  if (parameters.is_null()) return nullptr;
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  for (const Json& parameter : parameters) declare(*prototype, parameter);
  const auto collection = tamb::CreateParametersCollectionInstance(prototype);
  for (const Json& parameter : parameters) setValue(*collection, parameter);
  return collection;
}

Json describeTime(const tamb::MediaTime& time) {
  const tamb::EditRate& rate = time.GetEditRate();
  return Json::array({rate.GetNumerator(), rate.GetDenominator(), time.GetTimeNumber()});
}

tamb::MediaTime timeFrom(const Json& time) {
  const tamb::EditRate rate(time.at(0).get<std::uint32_t>(), time.at(1).get<std::uint32_t>());
  return {rate, time.at(2).get<std::int64_t>(), nullptr};
}

}  // namespace

Json describe(const tamb::ICommandMessage& command) {
  return {{"args", describeCollection(command.GetCommandArgs())},
          {"time", describeTime(command.GetTime())},
          {"name", command.GetCommandName()},
          {"id", command.GetCommandId()},
          {"workflowManagerId", command.GetWorkflowManagerId()},
          {"engineId", command.GetEngineId()},
          {"stepId", command.GetStepId()}};
}

Json describe(const tamb::INotificationMessage& notification) {
  return {{"object", describeCollection(notification.GetNotificationObject())},
          {"time", describeTime(notification.GetTime())},
          {"stepId", notification.GetStepId()},
          {"line", notification.GetNotificationLine()},
          {"id", notification.GetNotificationId()},
          {"commandId", notification.GetCommandId()},
          {"workflowManagerId", notification.GetWorkflowManagerId()},
          {"engineId", notification.GetEngineId()},
          {"isAnError", notification.IsAnError()}};
}

std::shared_ptr<const tamb::ICommandMessage> commandFrom(const Json& description) {
  if (description.is_null()) return nullptr;
  tamb::CommandFields fields;
  fields.commandArgs = collectionFrom(description.at("args"));
  fields.time = timeFrom(description.at("time"));
  description.at("name").get_to(fields.commandName);
  description.at("id").get_to(fields.commandId);
  description.at("workflowManagerId").get_to(fields.workflowManagerId);
  description.at("engineId").get_to(fields.engineId);
  description.at("stepId").get_to(fields.stepId);
  return std::make_shared<tamb::CommandMessage>(std::move(fields));
}

std::shared_ptr<const tamb::INotificationMessage> notificationFrom(const Json& description) {
  if (description.is_null()) return nullptr;
  tamb::NotificationFields fields;
  fields.notificationObject = collectionFrom(description.at("object"));
  fields.time = timeFrom(description.at("time"));
  description.at("stepId").get_to(fields.stepId);
  description.at("line").get_to(fields.notificationLine);
  description.at("id").get_to(fields.notificationId);
  description.at("commandId").get_to(fields.commandId);
  description.at("workflowManagerId").get_to(fields.workflowManagerId);
  description.at("engineId").get_to(fields.engineId);
  description.at("isAnError").get_to(fields.isAnError);
  return std::make_shared<tamb::NotificationMessage>(std::move(fields));
}

}  // namespace qor::test
