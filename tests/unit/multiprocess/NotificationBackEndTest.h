#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "CommandAndNotification.pb.h"
#include "TcpNotificationHubBackEnd.h"
#include "runtime/inproc/Network.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/BackgroundCall.h"
#include "tests/support/CapturedLog.h"

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

/// A back end, and a subscriber that looks at what it sends. All of it happens on the test's own thread.
class NotificationBackEndTest : public ::testing::Test {
 public:
  ~NotificationBackEndTest() override { socket::inproc::reset(); }

 protected:
  using Operation = socket::inproc::Operation;
  using Failure = socket::inproc::Failure;
  using Notification = std::shared_ptr<const tamb::INotificationMessage>;
  using Batch = std::vector<Notification>;

  static constexpr const char* socketName = "TcpNotificationHubRequest";
  static constexpr const char* address = "inproc://notifications";
  static constexpr const char* header = "TcpNotificationHubBackEnd on inproc://notifications as Publisher";
  static constexpr const char* manager = "manager-17";
  static constexpr unsigned int engine = 7;

  void TearDown() override {
    // A back end that goes waits for whatever nobody has taken.
    if (!listener_.isOpen()) listen();
    backEnd_.reset();
    listener_.close();
    EXPECT_TRUE(socket::inproc::sockets().empty());
  }

  static socket::SocketEndpoint endpoint() { return socket::SocketEndpoint::FromString(address); }
  void construct(unsigned long engineId = engine, const std::string& managerId = manager) {
    backEnd_.emplace(managerId, engineId, endpoint());
  }
  /// From now on everything is taken in order.
  void listen() { listener_.createAndConnect(socket::Protocol::Subscriber, endpoint(), 0); }

  static tamb::NotificationFields fields(const std::string& line = "a line") {
    return {.time = tamb::MediaTime(tamb::EditRate(25, 1), 3, nullptr),
            .stepId = "step of " + line,
            .notificationLine = line,
            .notificationId = "id of " + line,
            .commandId = 5,
            .workflowManagerId = manager,
            .engineId = engine};
  }
  static Notification notification(const std::string& line = "a line") {
    return std::make_shared<tamb::NotificationMessage>(fields(line));
  }
  static Notification notificationOf(const std::string& managerId, unsigned int engineId) {
    auto its = fields();
    its.workflowManagerId = managerId;
    its.engineId = engineId;
    return std::make_shared<tamb::NotificationMessage>(its);
  }
  static Notification notificationWith(std::shared_ptr<const tamb::IParametersCollectionInstance> object) {
    auto its = fields();
    its.notificationObject = std::move(object);
    return std::make_shared<tamb::NotificationMessage>(its);
  }

  void push(Batch batch) { backEnd_->PushNotifications(std::move(batch)); }

  /// The next message that was sent; throws when there is none.
  proto::NotificationMessageList next() {
    proto::NotificationMessageList list;
    std::string errorText;
    if (listener_.poll(0, errorText) != 0) throw std::runtime_error("nothing was sent " + errorText);
    if (listener_.receiveProtoBuf(&list, 65'536) != 0) throw std::runtime_error("something else was sent");
    return list;
  }
  bool nothingWasSent() {
    std::string errorText;
    return listener_.poll(0, errorText) == 1;
  }
  /// The lines of the next message.
  std::vector<std::string> nextLines() {
    std::vector<std::string> lines;
    const auto list = next();
    for (const auto& message : list.messages()) lines.push_back(message.notificationline());
    return lines;
  }

  /// Checks that the batch is refused with that text, reported so and not sent.
  void expectRefused(const Batch& batch, const std::string& text, const std::string& suffix, int line) {
    const std::string message = std::string("[") + header + ": " + text + suffix;
    const auto recordsBefore = log_.records().size();
    try {
      push(batch);
      ADD_FAILURE() << "not refused: " << text;
    } catch (const tamb::TAMBRuntimeError& error) {
      EXPECT_EQ(error.what(), message);
    }
    ASSERT_EQ(log_.records().size(), recordsBefore + 1);
    expectRecord(log_.records().back(), message, line);
    for (const auto& state : socket::inproc::sockets()) {
      EXPECT_EQ(state.unsent + state.unreceived, 0U) << state.name;
    }
  }
  static void expectRecord(const test::LogRecord& record, const std::string& message, int line) {
    EXPECT_EQ(record.message, message);
    EXPECT_EQ(static_cast<int>(record.level), 2);
    EXPECT_EQ(record.source, "src/TcpNotificationHubBackEnd");
    EXPECT_EQ(record.line, std::to_string(line));
    EXPECT_EQ(record.function, "");
  }

  const test::CapturedLog log_;
  socket::Socket listener_{"NotificationListener", socket::ClosePolicy::Newest};
  std::optional<TcpNotificationHubBackEnd> backEnd_;
};

}  // namespace qor::multiprocess_communication
