#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "CommandAndNotification.pb.h"
#include "qor/socket/Socket.h"
#include "runtime/inproc/Network.h"
#include "tests/support/BackgroundCall.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/Eventually.h"
#include "tests/support/Gate.h"

namespace qor::multiprocess_communication {

/// How something is reported, beside the header and the detail.
struct Report {
  const char* text;
  int line;
  int level = 2;
};

/// The receiving half of a channel, which is sent raw messages; what it delivers to is a recorder. `Channel`
/// says what the two channels differ in; their items are commands and notifications.
template <class Channel>
class ReceivingTest : public ::testing::Test {
 public:
  ~ReceivingTest() override { socket::inproc::reset(); }

 protected:
  using Operation = socket::inproc::Operation;
  using Failure = socket::inproc::Failure;
  using Item = typename Channel::Item;
  using List = typename Channel::List;
  using Wire = typename Channel::Wire;

  static constexpr const char* socketName = Channel::socketName;
  static constexpr const char* address = Channel::address;
  static constexpr std::chrono::seconds patience{20};

  void TearDown() override {
    gate_.open();
    receiver_.reset();
    EXPECT_TRUE(socket::inproc::sockets().empty());
  }

  static socket::SocketEndpoint endpoint(const std::string& where = address) {
    return socket::SocketEndpoint::FromString(where);
  }
  /// A receiver that receives.
  void open() { Channel::open(receiver_, local_, endpoint()); }
  void expectSoonDestroyed() {
    test::BackgroundCall destroying([&] { receiver_.reset(); });
    EXPECT_TRUE(destroying.endsWithin(patience));
    EXPECT_NO_THROW(destroying.get());
  }

  /// A complete item to put into a list.
  static Wire wire(const std::string& name = "a name") {
    Wire wire;
    Channel::mutableTime(wire).mutable_editrate()->set_numerator(25);
    Channel::mutableTime(wire).mutable_editrate()->set_denominator(1);
    Channel::mutableTime(wire).set_timenumber(3);
    Channel::name(wire, name);
    Channel::step(wire, "step of " + name);
    wire.set_commandid(5);
    wire.set_workflowmanagerid("manager-17");
    wire.set_engineid(7);
    return wire;
  }
  static List listOf(const std::vector<Wire>& wires) {
    List list;
    for (const auto& each : wires) *list.add_messages() = each;
    return list;
  }
  static List listOf(const std::vector<std::string>& names) {
    List list;
    for (const auto& name : names) *list.add_messages() = wire(name);
    return list;
  }
  static void deliverBytes(const std::string& bytes) { socket::inproc::deliver(socketName, bytes); }
  static void deliver(const List& list) { deliverBytes(list.SerializePartialAsString()); }
  static void deliver(const std::vector<Wire>& wires) { deliver(listOf(wires)); }
  static void deliverNames(const std::vector<std::string>& names) { deliver(listOf(names)); }

  /// Waits until everything that was delivered has been handled, and more is waited for.
  static bool allIsHandled() {
    return socket::inproc::waitUntil(socketName, [](const socket::inproc::SocketState& state) {
      return state.unreceived == 0 && state.blockedIn == Operation::Poll;
    });
  }
  std::vector<Item> arrived() const { return Channel::arrivals(local_).all(); }
  std::vector<std::string> namesUntilNow() const {
    std::vector<std::string> names;
    for (const auto& item : arrived()) names.push_back(Channel::name(*item));
    return names;
  }
  /// The names of all that has arrived, once all is handled.
  std::vector<std::string> arrivedNames() const {
    EXPECT_TRUE(allIsHandled());
    return namesUntilNow();
  }
  /// What one item arrives as; throws when that is not one item.
  Item received(const Wire& sent) {
    const auto before = arrived().size();
    deliver(std::vector{sent});
    const auto all = Channel::arrivals(local_).waitFor(before + 1);
    if (!allIsHandled() || all.size() != before + 1) throw std::runtime_error("not one item arrived");
    return all.back();
  }
  static std::size_t unreceived() {
    for (const auto& state : socket::inproc::sockets()) {
      if (state.name == socketName) return state.unreceived;
    }
    throw std::runtime_error("the socket is not open");
  }
  /// Waits until the thread that wrote the last record is gone; false when it still is there after some time.
  bool reporterIsGone() const {
    const auto task = "/proc/self/task/" + log_.records().back().threadId;
    return test::eventually([&] { return !std::filesystem::exists(task); });
  }

  static void expectRecord(const test::LogRecord& record, const Report& report,
                           const std::string& detail = "") {
    EXPECT_EQ(record.message, std::string(Channel::header) + ": " + report.text + detail);
    EXPECT_EQ(static_cast<int>(record.level), report.level) << record.message;
    EXPECT_EQ(record.source, Channel::source) << record.message;
    if (report.line != 0) {
      EXPECT_EQ(record.line, std::to_string(report.line)) << record.message;
    }
    EXPECT_EQ(record.function, "") << record.message;
  }
  /// Waits for a report, and checks that it is the only one, that its thread is gone, and nothing is received
  /// any more.
  void expectEnded(const Report& report, const std::string& detail = "") {
    ASSERT_TRUE(log_.waitFor(report.text + detail)) << detail;
    ASSERT_TRUE(reporterIsGone()) << "the thread goes on";
    const auto arrivedBefore = arrived().size();
    const auto unreceivedBefore = unreceived();
    deliverNames({"too late"});
    EXPECT_EQ(unreceived(), unreceivedBefore + 1);
    EXPECT_EQ(arrived().size(), arrivedBefore);
    expectSoonDestroyed();
    ASSERT_EQ(log_.records().size(), 1U);
    expectRecord(log_.records().front(), report, detail);
  }

  const test::CapturedLog log_;
  test::Gate gate_;
  typename Channel::Local local_;
  std::optional<typename Channel::Receiver> receiver_;
};

}  // namespace qor::multiprocess_communication
