#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CommandAndNotification.pb.h"
#include "TcpNotificationHubBackEnd.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tests/unit/multiprocess/SendingTest.h"

namespace qor::multiprocess_communication {

/// A notification that writes down what it is asked. One thread at a time.
class WatchedNotification : public tamb::NotificationMessage {
 public:
  using NotificationMessage::NotificationMessage;

  /// Called with the name of each operation before it returns.
  std::function<void(const std::string& operation)> whenAsked;

  const std::vector<std::string>& asked() const { return asked_; }

  const tamb::MediaTime& GetTime() const override {
    note("GetTime");
    return NotificationMessage::GetTime();
  }
  const std::string& GetStepId() const override {
    note("GetStepId");
    return NotificationMessage::GetStepId();
  }
  const std::string& GetNotificationLine() const override {
    note("GetNotificationLine");
    return NotificationMessage::GetNotificationLine();
  }
  std::shared_ptr<const tamb::IParametersCollectionInstance> GetNotificationObject() const override {
    note("GetNotificationObject");
    return NotificationMessage::GetNotificationObject();
  }
  const std::string& GetNotificationId() const override {
    note("GetNotificationId");
    return NotificationMessage::GetNotificationId();
  }
  unsigned int GetCommandId() const override {
    note("GetCommandId");
    return NotificationMessage::GetCommandId();
  }
  const std::string& GetWorkflowManagerId() const override {
    note("GetWorkflowManagerId");
    return NotificationMessage::GetWorkflowManagerId();
  }
  unsigned int GetEngineId() const override {
    note("GetEngineId");
    return NotificationMessage::GetEngineId();
  }
  bool IsAnError() const override {
    note("IsAnError");
    return NotificationMessage::IsAnError();
  }

 private:
  void note(const char* operation) const {
    asked_.emplace_back(operation);
    if (whenAsked) whenAsked(operation);
  }

  mutable std::vector<std::string> asked_;
};

/// The sending half of the notification channel.
struct NotificationSending {
  using Sender = TcpNotificationHubBackEnd;
  using Item = std::shared_ptr<const tamb::INotificationMessage>;
  using Batch = std::vector<Item>;
  using Fields = tamb::NotificationFields;
  using Message = tamb::NotificationMessage;
  using Watched = WatchedNotification;
  using List = proto::NotificationMessageList;
  using Wire = proto::NotificationMessage;

  static constexpr const char* socketName = "TcpNotificationHubRequest";
  static constexpr const char* address = "inproc://notifications";
  static constexpr const char* source = "src/TcpNotificationHubBackEnd";
  static constexpr const char* header = "TcpNotificationHubBackEnd on inproc://notifications as Publisher";
  static constexpr Refusal nullItem{"NULL notification passed to the notification hub", isNull, 55};
  static constexpr Refusal badManager{"Bad workflow manager id in notification", isNotTrue, 62};
  static constexpr Refusal badEngine{"Bad engine id in notification", isNotTrue, 69};

  static void open(std::optional<Sender>& sender, const std::string& manager, unsigned long engine,
                   const socket::SocketEndpoint& endpoint) {
    sender.emplace(manager, engine, endpoint);
  }
  static void push(Sender& sender, Batch batch) { sender.PushNotifications(std::move(batch)); }
  static void pushOne(Sender& sender, Item item) { sender.PushNotification(std::move(item)); }
  static Fields fields(const std::string& name) {
    return {.stepId = "step of " + name, .notificationLine = name, .notificationId = "id of " + name};
  }

  static auto& parameters(Fields& fields) { return fields.notificationObject; }
  static auto& name(Fields& fields) { return fields.notificationLine; }
  static const auto& time(const Wire& wire) { return wire.time(); }
  static const auto& name(const Wire& wire) { return wire.notificationline(); }
  static const auto& step(const Wire& wire) { return wire.workflowstep(); }
  static bool hasParameters(const Wire& wire) { return wire.has_notificationobject(); }
  static const auto& parameters(const Wire& wire) { return wire.notificationobject(); }

  /// What a push asks each notification for.
  static std::vector<std::string> operations() {
    return {"GetTime",           "GetStepId",    "GetNotificationLine",  "GetNotificationObject",
            "GetNotificationId", "GetCommandId", "GetWorkflowManagerId", "GetEngineId"};
  }

  /// A subclass that sees the batches itself.
  class Intercepting : public Sender {
   public:
    explicit Intercepting(const socket::SocketEndpoint& endpoint) : Sender("manager-17", 7, endpoint) {}
    std::vector<Batch> batches;
    void PushNotifications(Batch notifications) override { batches.push_back(std::move(notifications)); }
  };
};

using NotificationSendingTest = SendingTest<NotificationSending>;

}  // namespace qor::multiprocess_communication
