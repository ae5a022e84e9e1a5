#include "bench/compare/Conversions.h"

#include <string>
#include <string_view>

#include "Serializers.h"
#include "bench/compare/TypicalMessages.h"
#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tamb/LogContext.h"

namespace qor::bench {

namespace {

// All carriers convert collections with the library's functions, so that the carriers are compared rather
// than their conversions. Conversion::PlainValues, without collections, measures the cost of collections.
using multiprocess_communication::Serializers::ParametersCollectionInstanceFromProtoBuf;
using multiprocess_communication::Serializers::ParametersCollectionInstanceToProtoBuf;

void write(const tamb::MediaTime& time, wire::MediaTime& message) {
  message.mutable_editrate()->set_numerator(time.GetEditRate().GetNumerator());
  message.mutable_editrate()->set_denominator(time.GetEditRate().GetDenominator());
  message.set_timenumber(time.GetTimeNumber());
}

tamb::MediaTime read(const wire::MediaTime& message) {
  return {tamb::EditRate(message.editrate().denominator(), message.editrate().numerator()),
          message.timenumber(), nullptr};
}

template <class Parameter, class Value>
void set(Parameter& parameter, const char* key, const Value& value) {
  parameter.set_key(key);
  parameter.set_value(value);
}

void write(const TypicalValues& values, wire::ParametersCollectionCommon& data) {
  set(*data.add_boolparams(), "enabled", values.enabled);
  set(*data.add_int64params(), "offset", values.offset);
  set(*data.add_uint64params(), "frames", values.frames);
  set(*data.add_doubleparams(), "gain", values.gain);
  set(*data.add_utf8stringparams(), "target", std::string(values.target));
}

/// The typical parameters, or null.
void write(const std::shared_ptr<const tamb::IParametersCollectionInstance>& parameters,
           wire::ParametersCollectionInstance& message, Conversion conversion) {
  if (conversion == Conversion::Objects) return ParametersCollectionInstanceToProtoBuf(parameters, message);
  write(typicalDefaults, *message.mutable_prototype()->mutable_data());
  write(typicalValues, *message.mutable_data());
}

template <class Parameters, class Value>
bool isOnly(const Parameters& parameters, std::string_view key, const Value& value) {
  return parameters.size() == 1 && parameters[0].key() == key && parameters[0].value() == value;
}

bool areTypical(const wire::ParametersCollectionCommon& data) {
  return isOnly(data.boolparams(), "enabled", typicalValues.enabled) &&
         isOnly(data.int64params(), "offset", typicalValues.offset) &&
         isOnly(data.uint64params(), "frames", typicalValues.frames) &&
         isOnly(data.doubleparams(), "gain", typicalValues.gain) &&
         isOnly(data.utf8stringparams(), "target", typicalValues.target);
}

void write(const tamb::ICommandMessage& command, wire::CommandMessage& message, Conversion conversion) {
  write(command.GetTime(), *message.mutable_mediatime());
  message.set_commandname(command.GetCommandName());
  message.set_commandid(command.GetCommandId());
  message.set_workflowmanagerid(command.GetWorkflowManagerId());
  message.set_engineid(command.GetEngineId());
  message.set_stepid(command.GetStepId());
  if (const auto parameters = command.GetCommandArgs()) {
    write(parameters, *message.mutable_commandargs(), conversion);
  }
}

std::shared_ptr<const tamb::ICommandMessage> read(const wire::CommandMessage& message) {
  return std::make_shared<tamb::CommandMessage>(tamb::CommandFields{
      .commandArgs = message.has_commandargs()
                         ? ParametersCollectionInstanceFromProtoBuf(message.commandargs())
                         : nullptr,
      .time = read(message.mediatime()),
      .commandName = message.commandname(),
      .commandId = static_cast<unsigned int>(message.commandid()),
      .workflowManagerId = message.workflowmanagerid(),
      .engineId = static_cast<unsigned int>(message.engineid()),
      .stepId = message.stepid(),
  });
}

void write(const tamb::INotificationMessage& notification, wire::NotificationMessage& message,
           Conversion conversion) {
  write(notification.GetTime(), *message.mutable_time());
  message.set_workflowstep(notification.GetStepId());
  message.set_notificationline(notification.GetNotificationLine());
  message.set_id(notification.GetNotificationId());
  message.set_commandid(notification.GetCommandId());
  message.set_workflowmanagerid(notification.GetWorkflowManagerId());
  message.set_engineid(notification.GetEngineId());
  if (const auto object = notification.GetNotificationObject()) {
    write(object, *message.mutable_notificationobject(), conversion);
  }
}

std::shared_ptr<const tamb::INotificationMessage> read(const wire::NotificationMessage& message) {
  return std::make_shared<tamb::NotificationMessage>(tamb::NotificationFields{
      .time = read(message.time()),
      .stepId = message.workflowstep(),
      .notificationLine = message.notificationline(),
      .notificationObject = message.has_notificationobject()
                                ? ParametersCollectionInstanceFromProtoBuf(message.notificationobject())
                                : nullptr,
      .notificationId = tamb::GetUUIDString(),
      .commandId = static_cast<unsigned int>(message.commandid()),
      .workflowManagerId = message.workflowmanagerid(),
      .engineId = static_cast<unsigned int>(message.engineid()),
  });
}

}  // namespace

void write(const CommandList& commands, wire::CommandMessageList& list, Conversion conversion) {
  list.Clear();
  for (const auto& command : commands) write(*command, *list.add_messages(), conversion);
}

void write(const NotificationList& notifications, wire::NotificationMessageList& list,
           Conversion conversion) {
  list.Clear();
  for (const auto& notification : notifications) write(*notification, *list.add_messages(), conversion);
}

void read(const wire::CommandMessageList& list, const Arrived& arrived, Conversion conversion) {
  for (const auto& message : list.messages()) {
    if (conversion == Conversion::Objects) {
      arrived(arrivalOf(*read(message)));
    } else {
      arrived({.id = message.commandid(), .hasParameters = areTypical(message.commandargs().data())});
    }
  }
}

void read(const wire::NotificationMessageList& list, const Arrived& arrived, Conversion conversion) {
  for (const auto& message : list.messages()) {
    if (conversion == Conversion::Objects) {
      arrived(arrivalOf(*read(message)));
    } else {
      arrived({.id = message.commandid(), .hasParameters = areTypical(message.notificationobject().data())});
    }
  }
}

}  // namespace qor::bench
