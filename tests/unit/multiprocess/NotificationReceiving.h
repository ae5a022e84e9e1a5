#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "TcpNotificationHubFrontEnd.h"
#include "tests/support/RecordingHub.h"
#include "tests/unit/multiprocess/ReceivingTest.h"

namespace qor::multiprocess_communication {

/// The receiving half of the notification channel.
struct NotificationReceiving {
  using Receiver = TcpNotificationHubFrontEnd;
  using IItem = tamb::INotificationMessage;
  using Item = std::shared_ptr<const IItem>;
  using List = proto::NotificationMessageList;
  using Wire = proto::NotificationMessage;

  static constexpr const char* socketName = "TcpNotificationHubFrontEndNotification";
  static constexpr const char* address = "inproc://notifications";
  static constexpr const char* source = "src/TcpNotificationHubFrontEnd";
  static constexpr const char* header = "TcpNotificationHubFrontEnd";
  static constexpr Report pollError{"Poll error in notification reception loop: ", 251};
  static constexpr Report contextEnd{"TCP notification hub: ", 230, 0};
  static constexpr Report lostParameters{"Notification: failed serializing parameters collection: ", 288};
  static constexpr Report failedHandling{"Error in notification reception handler: ", 306};

  /// The publishing face of a local hub that takes notifications one by one only.
  class OneByOne : public test::RecordingHub {
   public:
    void PushNotifications(std::vector<Item> /*batch*/) override { ADD_FAILURE() << "pushed as a batch"; }
  };
  struct Local {
    std::shared_ptr<tamb::INotificationHubFrontEnd> hubFrontEnd = tamb::CreateNotificationHub().first;
    std::shared_ptr<test::RecordingHub> hub = std::make_shared<OneByOne>();
  };
  static auto& arrivals(const Local& local) { return local.hub->notifications; }
  static auto& onPush(const Local& local) { return local.hub->onPush; }

  static void open(std::optional<Receiver>& receiver, const Local& local,
                   const socket::SocketEndpoint& endpoint) {
    receiver.emplace(local.hubFrontEnd, local.hub);
    receiver->startSubscriptionThread(endpoint);
  }

  static auto& mutableTime(Wire& wire) { return *wire.mutable_time(); }
  static void name(Wire& wire, const std::string& name) {
    wire.set_notificationline(name);
    wire.set_id("id on the wire");
  }
  static void step(Wire& wire, const std::string& step) { wire.set_workflowstep(step); }
  static auto& mutableParameters(Wire& wire) { return *wire.mutable_notificationobject(); }
  static const auto& name(const IItem& item) { return item.GetNotificationLine(); }
  static auto parameters(const IItem& item) { return item.GetNotificationObject(); }
};

class NotificationReceivingTest : public ReceivingTest<NotificationReceiving> {
 protected:
  /// The kernel's PF_EXITING.
  static constexpr unsigned long isEnding = 4;

  void construct() { receiver_.emplace(local_.hubFrontEnd, local_.hub); }
  void start(const std::string& at = address) { receiver_->startSubscriptionThread(endpoint(at)); }
  /// From now on a push that brings this line is held up at the gate.
  void holdUp(const std::string& line) {
    local_.hub->onPush = [this, line](const tamb::INotificationMessage& notification) {
      if (notification.GetNotificationLine() == line) gate_.pass();
    };
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

  /// Waits for so many records of exactly that report, and checks them; there are no others with its text.
  void expectReported(const Report& report, const std::string& detail = "", std::size_t count = 1) const {
    const std::string text = report.text + detail;
    ASSERT_TRUE(log_.waitFor(text, count)) << text;
    const auto records = log_.recordsWith(text);
    EXPECT_EQ(records.size(), count) << text;
    for (const auto& record : records) expectRecord(record, report, detail);
  }

  const std::size_t threadsBefore_ = threadsAfterTheFirst();
};

}  // namespace qor::multiprocess_communication
