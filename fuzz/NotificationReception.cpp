#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

#include "TcpNotificationHubFrontEnd.h"
#include "fuzz/Contents.h"
#include "fuzz/Reception.h"

namespace {

namespace proto = qor::multiprocess_communication::proto;
using qor::fuzz::require;
using qor::multiprocess_communication::TcpNotificationHubFrontEnd;

/// A subscriber to all notifications.
class Subscriber : public tamb::INotificationCallback {
 public:
  /// The notifications since the last call.
  std::vector<std::shared_ptr<const tamb::INotificationMessage>> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(notifications_, {});
  }
  void OnNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override {
    const std::lock_guard lock(mutex_);
    notifications_.push_back(std::move(notification));
  }

 private:
  std::mutex mutex_;
  std::vector<std::shared_ptr<const tamb::INotificationMessage>> notifications_;
};

struct Host {
  Host() {
    qor::fuzz::Silence::keep();
    frontEnd.Subscribe(subscriber);
    frontEnd.startSubscriptionThread(qor::socket::SocketEndpoint::FromString("inproc://notifications"));
  }

  std::shared_ptr<Subscriber> subscriber = std::make_shared<Subscriber>();
  std::pair<std::shared_ptr<tamb::INotificationHubFrontEnd>, std::shared_ptr<tamb::INotificationHubBackEnd>>
      hub = tamb::CreateNotificationHub();
  TcpNotificationHubFrontEnd frontEnd{hub.first, hub.second};
};

void requireSame(const tamb::INotificationMessage& notification, const proto::NotificationMessage& message) {
  require(notification.GetNotificationLine() == message.notificationline(), "the line is the message's");
  require(notification.GetWorkflowManagerId() == message.workflowmanagerid(), "the manager is the message's");
  require(notification.GetStepId() == message.workflowstep(), "the step is the message's");
  require(notification.GetNotificationId() != message.id(), "the id is a fresh one");
  require(notification.GetCommandId() == (message.commandid() & 0xffff'ffffU),
          "the command is the message's");
  require(notification.GetEngineId() == (message.engineid() & 0xffff'ffffU), "the engine is the message's");
  require(notification.GetTime().GetTimeNumber() == message.time().timenumber(), "the time is the message's");
  require(!notification.IsAnError(), "no notification is an error");
  qor::fuzz::requireSameRate(notification.GetTime(), message.time());
  qor::fuzz::requireSameParameters(notification.GetNotificationObject(), message.has_notificationobject(),
                                   message.notificationobject());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Host host;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  qor::fuzz::receiveAs("TcpNotificationHubFrontEndNotification", bytes);

  const auto expected = qor::fuzz::understood<proto::NotificationMessageList>(bytes);
  const auto notifications = host.subscriber->take();
  require(notifications.size() == static_cast<std::size_t>(expected.messages_size()),
          "every notification arrives");
  for (std::size_t i = 0; i < notifications.size(); ++i) {
    requireSame(*notifications[i], expected.messages(static_cast<int>(i)));
  }
  return 0;
}
