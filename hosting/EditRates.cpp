#include "hosting/EditRates.h"

#include <utility>
#include <vector>

#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/NotificationMessage.h"

namespace qor::hosting {

namespace {

tamb::MediaTime exchanged(const tamb::MediaTime& time) {
  return {tamb::EditRate(time.GetEditRate().GetDenominator(), time.GetEditRate().GetNumerator()),
          time.GetTimeNumber(), time.GetClockInfo()};
}

std::shared_ptr<const tamb::ICommandMessage> exchanged(const tamb::ICommandMessage& command) {
  return std::make_shared<tamb::CommandMessage>(tamb::CommandFields{
      .commandArgs = command.GetCommandArgs(),
      .time = exchanged(command.GetTime()),
      .commandName = command.GetCommandName(),
      .commandId = command.GetCommandId(),
      .workflowManagerId = command.GetWorkflowManagerId(),
      .engineId = command.GetEngineId(),
      .stepId = command.GetStepId(),
  });
}

std::shared_ptr<const tamb::INotificationMessage> exchanged(const tamb::INotificationMessage& notification) {
  return std::make_shared<tamb::NotificationMessage>(tamb::NotificationFields{
      .time = exchanged(notification.GetTime()),
      .stepId = notification.GetStepId(),
      .notificationLine = notification.GetNotificationLine(),
      .notificationObject = notification.GetNotificationObject(),
      .notificationId = notification.GetNotificationId(),
      .commandId = notification.GetCommandId(),
      .workflowManagerId = notification.GetWorkflowManagerId(),
      .engineId = notification.GetEngineId(),
      .isAnError = notification.IsAnError(),
  });
}

/// Null pointers are passed on for the receiver to refuse.
template <class Message>
std::vector<std::shared_ptr<const Message>> exchanged(std::vector<std::shared_ptr<const Message>> messages) {
  for (auto& message : messages) {
    if (message) message = exchanged(*message);
  }
  return messages;
}

class CommandProcessor : public tamb::ICommandProcessorFrontEnd {
 public:
  explicit CommandProcessor(std::shared_ptr<tamb::ICommandProcessorFrontEnd> processor)
      : processor_(std::move(processor)) {}

  std::shared_ptr<tamb::IBasicControl> GetControl(std::string name) override {
    return processor_->GetControl(std::move(name));
  }
  std::shared_ptr<tamb::IBasicStatusControl> GetStatusControl(std::string name) override {
    return processor_->GetStatusControl(std::move(name));
  }
  void PushCommands(std::vector<std::shared_ptr<const tamb::ICommandMessage>> commands) override {
    processor_->PushCommands(exchanged(std::move(commands)));
  }
  void PushCommand(std::shared_ptr<const tamb::ICommandMessage> command) override {
    processor_->PushCommand(command ? exchanged(*command) : nullptr);
  }
  void SetWorkflowManagerId(std::string id) override { processor_->SetWorkflowManagerId(std::move(id)); }
  void SetEngineId(unsigned int id) override { processor_->SetEngineId(id); }
  std::string GetWorkflowManagerId() const override { return processor_->GetWorkflowManagerId(); }
  unsigned int GetEngineId() const override { return processor_->GetEngineId(); }

 private:
  const std::shared_ptr<tamb::ICommandProcessorFrontEnd> processor_;
};

class NotificationHub : public tamb::INotificationHubBackEnd {
 public:
  explicit NotificationHub(std::shared_ptr<tamb::INotificationHubBackEnd> hub) : hub_(std::move(hub)) {}

  void PushNotifications(
      std::vector<std::shared_ptr<const tamb::INotificationMessage>> notifications) override {
    hub_->PushNotifications(exchanged(std::move(notifications)));
  }
  void PushNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override {
    PushNotifications({std::move(notification)});
  }

 private:
  const std::shared_ptr<tamb::INotificationHubBackEnd> hub_;
};

}  // namespace

std::shared_ptr<tamb::ICommandProcessorFrontEnd> withHostsEditRates(
    std::shared_ptr<tamb::ICommandProcessorFrontEnd> processor) {
  return std::make_shared<CommandProcessor>(std::move(processor));
}

std::shared_ptr<tamb::INotificationHubBackEnd> withEnginesEditRates(
    std::shared_ptr<tamb::INotificationHubBackEnd> hub) {
  return std::make_shared<NotificationHub>(std::move(hub));
}

}  // namespace qor::hosting
