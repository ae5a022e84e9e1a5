#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "CommandAndNotification.pb.h"
#include "TcpNotificationHubFrontEnd.h"
#include "runtime/inproc/Network.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/BackgroundCall.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/Eventually.h"
#include "tests/support/Gate.h"
#include "tests/support/RecordingHub.h"

namespace qor::multiprocess_communication {

/// The publishing face of a local hub that wants its notifications one by one.
class HubForSingles : public test::RecordingHub {
 public:
  void PushNotifications(
      std::vector<std::shared_ptr<const tamb::INotificationMessage>> /*notifications*/) override {
    ADD_FAILURE() << "a batch was pushed";
  }
};

/// A front end whose local hub records, and which is sent raw messages.
class NotificationFrontEndTest : public ::testing::Test {
 public:
  ~NotificationFrontEndTest() override { socket::inproc::reset(); }

 protected:
  using Operation = socket::inproc::Operation;
  using Failure = socket::inproc::Failure;

  static constexpr const char* socketName = "TcpNotificationHubFrontEndNotification";
  static constexpr const char* address = "inproc://notifications";
  static constexpr const char* header = "TcpNotificationHubFrontEnd: ";
  static constexpr std::chrono::seconds patience{20};
  /// The kernel's PF_EXITING.
  static constexpr unsigned long isEnding = 4;

  void TearDown() override {
    gate_.open();
    frontEnd_.reset();
    EXPECT_TRUE(socket::inproc::sockets().empty());
  }

  void construct() { frontEnd_.emplace(hubFrontEnd_, hub_); }
  void start(const std::string& at = address) {
    frontEnd_->startSubscriptionThread(socket::SocketEndpoint::FromString(at));
  }
  /// From now on a push that brings this line is held up at the gate.
  void holdUp(const std::string& line) {
    hub_->onPush = [this, line](const tamb::INotificationMessage& notification) {
      if (notification.GetNotificationLine() == line) gate_.pass();
    };
  }

  static proto::NotificationMessage message(const std::string& line = "a line") {
    proto::NotificationMessage message;
    message.mutable_time()->mutable_editrate()->set_numerator(25);
    message.mutable_time()->mutable_editrate()->set_denominator(1);
    message.mutable_time()->set_timenumber(3);
    message.set_workflowstep("a step");
    message.set_notificationline(line);
    message.set_id("id on the wire");
    message.set_commandid(5);
    message.set_workflowmanagerid("manager-17");
    message.set_engineid(7);
    return message;
  }
  static std::string encoded(const std::vector<proto::NotificationMessage>& messages) {
    proto::NotificationMessageList list;
    for (const auto& each : messages) *list.add_messages() = each;
    return list.SerializeAsString();
  }
  static std::string encoded(const std::vector<std::string>& lines) {
    std::vector<proto::NotificationMessage> messages;
    for (const auto& line : lines) messages.push_back(message(line));
    return encoded(messages);
  }
  static void deliver(const std::string& bytes) { socket::inproc::deliver(socketName, bytes); }
  static void deliverLines(const std::vector<std::string>& lines) { deliver(encoded(lines)); }

  /// Waits until all that was delivered has been handled, and more is waited for.
  static bool allIsHandled() {
    return socket::inproc::waitUntil(socketName, [](const socket::inproc::SocketState& state) {
      return state.unreceived == 0 && state.blockedIn == Operation::Poll;
    });
  }
  /// The lines that have been pushed to the local hub, once all is handled.
  std::vector<std::string> pushedLines() {
    EXPECT_TRUE(allIsHandled());
    return linesUntilNow();
  }
  std::vector<std::string> linesUntilNow() const {
    std::vector<std::string> lines;
    for (const auto& notification : hub_->notifications.all()) {
      lines.push_back(notification->GetNotificationLine());
    }
    return lines;
  }
  /// What the local hub is pushed for one message; throws when that is not one notification.
  std::shared_ptr<const tamb::INotificationMessage> received(const proto::NotificationMessage& sent) {
    const auto before = hub_->notifications.all().size();
    deliver(encoded(std::vector{sent}));
    const auto all = hub_->notifications.waitFor(before + 1);
    if (!allIsHandled() || all.size() != before + 1) {
      throw std::runtime_error("not one notification was pushed");
    }
    return all.back();
  }

  /// How many threads this process has, without those that are ending: they can be joined while the system
  /// still lists them.
  static std::size_t threads() {
    std::size_t count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
      std::ifstream stat(task.path() / "stat");
      stat.ignore(std::numeric_limits<std::streamsize>::max(), ')');
      char state = '\0';
      long parent = 0;
      long group = 0;
      long session = 0;
      long terminal = 0;
      long foreground = 0;
      unsigned long flags = isEnding;
      stat >> state >> parent >> group >> session >> terminal >> foreground >> flags;
      if (stat && (flags & isEnding) == 0) ++count;
    }
    return count;
  }
  /// The same, once a thread has come and gone: with the first one a sanitizer starts one of its own, which
  /// stays.
  static std::size_t threadsAfterTheFirst() {
    std::thread([] {}).join();
    return threads();
  }
  /// Waits until this process has no more threads than that.
  static bool threadsFallTo(std::size_t count) {
    return test::eventually([&] { return threads() <= count; });
  }

  /// Waits for so many records of exactly that text, and checks them; there are no others with it.
  void expectReported(const std::string& text, int line, int level = 2, std::size_t count = 1) const {
    ASSERT_TRUE(log_.waitFor(text, count)) << text;
    const auto records = log_.recordsWith(text);
    EXPECT_EQ(records.size(), count) << text;
    for (const auto& record : records) expectRecord(record, header + text, line, level);
  }
  static void expectRecord(const test::LogRecord& record, const std::string& message, int line,
                           int level = 2) {
    EXPECT_EQ(record.message, message);
    EXPECT_EQ(static_cast<int>(record.level), level) << message;
    EXPECT_EQ(record.source, "src/TcpNotificationHubFrontEnd") << message;
    EXPECT_EQ(record.line, std::to_string(line)) << message;
    EXPECT_EQ(record.function, "") << message;
  }

  const test::CapturedLog log_;
  test::Gate gate_;
  std::shared_ptr<tamb::INotificationHubFrontEnd> hubFrontEnd_ = tamb::CreateNotificationHub().first;
  std::shared_ptr<HubForSingles> hub_ = std::make_shared<HubForSingles>();
  std::optional<TcpNotificationHubFrontEnd> frontEnd_;
  const std::size_t threadsBefore_ = threadsAfterTheFirst();
};

}  // namespace qor::multiprocess_communication
