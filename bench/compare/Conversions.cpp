#include "bench/compare/Conversions.h"

#include "Serializers.h"
#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tamb/LogContext.h"

namespace qor::bench {

namespace {

// Parameters of any kind are turned into messages and back by the library's own functions: what is compared
// is the way of the messages, not who writes the better conversion.
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

void write(const tamb::ICommandMessage& command, wire::CommandMessage& message) {
  write(command.GetTime(), *message.mutable_mediatime());
  message.set_commandname(command.GetCommandName());
  message.set_commandid(command.GetCommandId());
  message.set_workflowmanagerid(command.GetWorkflowManagerId());
  message.set_engineid(command.GetEngineId());
  message.set_stepid(command.GetStepId());
  if (const auto parameters = command.GetCommandArgs()) {
    ParametersCollectionInstanceToProtoBuf(parameters, *message.mutable_commandargs());
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

void write(const tamb::INotificationMessage& notification, wire::NotificationMessage& message) {
  write(notification.GetTime(), *message.mutable_time());
  message.set_workflowstep(notification.GetStepId());
  message.set_notificationline(notification.GetNotificationLine());
  message.set_id(notification.GetNotificationId());
  message.set_commandid(notification.GetCommandId());
  message.set_workflowmanagerid(notification.GetWorkflowManagerId());
  message.set_engineid(notification.GetEngineId());
  if (const auto object = notification.GetNotificationObject()) {
    ParametersCollectionInstanceToProtoBuf(object, *message.mutable_notificationobject());
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

void write(const CommandList& commands, wire::CommandMessageList& list) {
  list.Clear();
  for (const auto& command : commands) write(*command, *list.add_messages());
}

void write(const NotificationList& notifications, wire::NotificationMessageList& list) {
  list.Clear();
  for (const auto& notification : notifications) write(*notification, *list.add_messages());
}

void read(const wire::CommandMessageList& list, const CommandArrived& arrived) {
  for (const auto& message : list.messages()) arrived(*read(message));
}

void read(const wire::NotificationMessageList& list, const NotificationArrived& arrived) {
  for (const auto& message : list.messages()) arrived(*read(message));
}

}  // namespace qor::bench
