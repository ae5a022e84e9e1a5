#pragma once

#include <memory>
#include <string>
#include <utility>

#include "bench/compare/Ends.h"
#include "bench/compare/TypicalMessages.h"
#include "tamb/ICommandProcessor.h"
#include "tamb/INotificationHub.h"

// Receivers of framework objects at the ends of the channels.

namespace qor::bench {

/// The host's notification hub.
class NotificationSink : public tamb::INotificationHubBackEnd {
 public:
  explicit NotificationSink(Arrived arrived) : arrived_(std::move(arrived)) {}
  void PushNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override {
    arrived_(arrivalOf(*notification));
  }
  void PushNotifications(NotificationList /*notifications*/) override {}

 private:
  const Arrived arrived_;
};

/// The engine's command processor.
class CommandSink : public tamb::ICommandProcessorFrontEnd {
 public:
  explicit CommandSink(Arrived arrived) : arrived_(std::move(arrived)) {}
  void PushCommand(std::shared_ptr<const tamb::ICommandMessage> command) override {
    arrived_(arrivalOf(*command));
  }
  void PushCommands(CommandList /*commands*/) override {}
  std::shared_ptr<tamb::IBasicControl> GetControl(std::string /*name*/) override { return nullptr; }
  std::shared_ptr<tamb::IBasicStatusControl> GetStatusControl(std::string /*name*/) override {
    return nullptr;
  }
  void SetWorkflowManagerId(std::string /*id*/) override {}
  void SetEngineId(unsigned int /*id*/) override {}
  std::string GetWorkflowManagerId() const override { return workflowManagerId; }
  unsigned int GetEngineId() const override { return engineId; }

 private:
  const Arrived arrived_;
};

}  // namespace qor::bench
