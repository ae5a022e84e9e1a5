#include <utility>

#include "bench/compare/Ends.h"
#include "bench/compare/TypicalMessages.h"
#include "runtime/tamb/CommandProcessor.h"
#include "tamb/INotificationHub.h"
#include "tests/support/FakeEngine.h"

namespace qor::bench {

namespace {

class CommandControl : public tamb::IBasicControl {
 public:
  explicit CommandControl(Arrived arrived) : arrived_(std::move(arrived)) {}
  void ExecuteCommand(const tamb::ICommandMessage& command) override { arrived_(arrivalOf(command)); }

 private:
  const Arrived arrived_;
};

class NotificationCallback : public tamb::INotificationCallback {
 public:
  explicit NotificationCallback(Arrived arrived) : arrived_(std::move(arrived)) {}
  void OnNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override {
    arrived_(arrivalOf(*notification));
  }

 private:
  const Arrived arrived_;
};

/// Commands run as soon as they are pushed, on the pusher's thread; those pushed meanwhile run afterwards.
class LocalHostEnd : public HostEnd {
 public:
  explicit LocalHostEnd(Arrived arrived) {
    processor_.second->AddControl(stepId, std::make_shared<CommandControl>(std::move(arrived)));
  }
  void ping() override { engine_->Ping(1'000); }
  void push(const CommandList& commands, bool /*moreFollow*/) override {
    processor_.first->PushCommands(commands);
    ++pushed_;
    if (executes_) return;
    executes_ = true;
    for (; pushed_ > 0; --pushed_) processor_.second->ExecuteAllCommands();
    executes_ = false;
  }

 private:
  const std::shared_ptr<tamb::IEngineFrontEnd> engine_ = std::make_shared<test::FakeEngine>();
  const std::pair<std::shared_ptr<tamb::ICommandProcessorFrontEnd>,
                  std::shared_ptr<tamb::ICommandProcessorBackEnd>>
      processor_ = tamb::CreateCommandProcessor();
  std::size_t pushed_ = 0;
  bool executes_ = false;
};

class LocalEngineEnd : public EngineEnd {
 public:
  explicit LocalEngineEnd(Arrived arrived) {
    hub_.first->Subscribe(std::make_shared<NotificationCallback>(std::move(arrived)));
  }
  void push(const NotificationList& notifications, bool /*moreFollow*/) override {
    hub_.second->PushNotifications(notifications);
  }

 private:
  const std::pair<std::shared_ptr<tamb::INotificationHubFrontEnd>,
                  std::shared_ptr<tamb::INotificationHubBackEnd>>
      hub_ = tamb::CreateNotificationHub();
};

}  // namespace

LocalEnds makeLocalEnds(Arrived commandArrived, Arrived notificationArrived) {
  return {.host = std::make_unique<LocalHostEnd>(std::move(commandArrived)),
          .engine = std::make_unique<LocalEngineEnd>(std::move(notificationArrived))};
}

}  // namespace qor::bench
