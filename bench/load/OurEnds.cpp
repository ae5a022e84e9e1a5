#include "bench/load/OurEnds.h"

#include <utility>

#include "TcpCommandProcessorBackEnd.h"
#include "TcpCommandProcessorFrontEnd.h"
#include "TcpNotificationHubBackEnd.h"
#include "TcpNotificationHubFrontEnd.h"
#include "bench/load/MessagePool.h"

namespace qor::bench {

namespace {

using multiprocess_communication::TcpCommandProcessorBackEnd;
using multiprocess_communication::TcpCommandProcessorFrontEnd;
using multiprocess_communication::TcpNotificationHubBackEnd;
using multiprocess_communication::TcpNotificationHubFrontEnd;

class CommandSender : public Sender {
 public:
  CommandSender(const LoadCase& load, const socket::SocketEndpoint& endpoint) : pool_(load) {
    frontEnd_.SetWorkflowManagerId(workflowManagerId);
    frontEnd_.SetEngineId(engineId);
    frontEnd_.connectEndpoint(endpoint);
  }
  void push(std::size_t first) override { frontEnd_.PushCommands(pool_.listAt(first)); }

 private:
  const MessagePool<Commands> pool_;
  TcpCommandProcessorFrontEnd frontEnd_;
};

class NotificationSender : public Sender {
 public:
  NotificationSender(const LoadCase& load, const socket::SocketEndpoint& endpoint)
      : pool_(load), backEnd_(workflowManagerId, engineId, endpoint) {}
  void push(std::size_t first) override { backEnd_.PushNotifications(pool_.listAt(first)); }

 private:
  const MessagePool<Notifications> pool_;
  TcpNotificationHubBackEnd backEnd_;
};

/// The engine's command processor.
class CommandSink : public tamb::ICommandProcessorFrontEnd {
 public:
  explicit CommandSink(Arrived arrived) : arrived_(std::move(arrived)) {}
  void PushCommand(std::shared_ptr<const tamb::ICommandMessage> command) override {
    arrive(*command, arrived_);
  }
  void PushCommands(std::vector<std::shared_ptr<const tamb::ICommandMessage>> /*commands*/) override {}
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

class CommandReceiver : public Receiver {
 public:
  CommandReceiver(const socket::SocketEndpoint& endpoint, const Arrived& arrived)
      : backEnd_(std::make_shared<CommandSink>(arrived), nullptr, endpoint) {}

 private:
  TcpCommandProcessorBackEnd backEnd_;
};

/// The host's hub, as it publishes.
class NotificationSink : public tamb::INotificationHubBackEnd {
 public:
  explicit NotificationSink(Arrived arrived) : arrived_(std::move(arrived)) {}
  void PushNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override {
    arrive(*notification, arrived_);
  }
  void PushNotifications(
      std::vector<std::shared_ptr<const tamb::INotificationMessage>> /*notifications*/) override {}

 private:
  const Arrived arrived_;
};

class NotificationReceiver : public Receiver {
 public:
  NotificationReceiver(const socket::SocketEndpoint& endpoint, const Arrived& arrived)
      : frontEnd_(tamb::CreateNotificationHub().first, std::make_shared<NotificationSink>(arrived)) {
    frontEnd_.startSubscriptionThread(endpoint);
  }

 private:
  TcpNotificationHubFrontEnd frontEnd_;
};

}  // namespace

std::unique_ptr<Sender> makeOurSender(const LoadCase& load, const socket::SocketEndpoint& endpoint) {
  if (load.channel == Channel::Commands) return std::make_unique<CommandSender>(load, endpoint);
  return std::make_unique<NotificationSender>(load, endpoint);
}

std::unique_ptr<Receiver> makeOurReceiver(const LoadCase& load, const socket::SocketEndpoint& endpoint,
                                          const Arrived& arrived) {
  if (load.channel == Channel::Commands) return std::make_unique<CommandReceiver>(endpoint, arrived);
  return std::make_unique<NotificationReceiver>(endpoint, arrived);
}

}  // namespace qor::bench
