#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "TcpEngine.pb.h"
#include "TcpEngineBackEnd.h"
#include "runtime/inproc/Network.h"
#include "tests/support/BackgroundCall.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeEngine.h"
#include "tests/support/ManualClock.h"

namespace qor::multiprocess_communication {

/// A back end with a fake engine and a clock that stands still, a peer that sends it raw requests, and one
/// that listens to its status.
class BackEndTest : public ::testing::Test {
 public:
  ~BackEndTest() override { socket::inproc::reset(); }

 protected:
  using Request = proto::EngineFrontEndRequest;
  using Reply = proto::EngineBackEndReply;
  using Operation = socket::inproc::Operation;
  using Failure = socket::inproc::Failure;

  static constexpr const char* requests = "TcpEngineBackEndCommandListenSocket";
  static constexpr const char* status = "TcpEngineBackEndStatusPublicationSocket";
  static constexpr std::chrono::seconds patience{20};

  void TearDown() override {
    stop();
    listener_.close();
    EXPECT_TRUE(socket::inproc::sockets().empty());
  }

  /// Returns once both sockets are open.
  void start() {
    construct();
    ASSERT_TRUE(socket::inproc::waitUntilOpen(requests));
    ASSERT_TRUE(socket::inproc::waitUntilOpen(status));
  }
  void construct() {
    backEnd_.emplace(engine_, socket::SocketEndpoint::FromString("inproc://engine-requests"),
                     socket::SocketEndpoint::FromString("inproc://engine-status"), clock_);
  }
  /// Destroys the back end, with an engine that has finished.
  void stop() {
    if (engine_) engine_->finish();
    backEnd_.reset();
  }

  static std::string encoded(Request::RequestType type, std::optional<std::uint32_t> timeOut = {}) {
    Request request;
    request.set_type(type);
    if (timeOut) request.set_timeoutmilliseconds(*timeOut);
    return request.SerializeAsString();
  }
  static std::future<std::string> send(Request::RequestType type, std::optional<std::uint32_t> timeOut = {}) {
    return socket::inproc::request(requests, encoded(type, timeOut));
  }
  /// A reply in words; which texts it carries makes a difference.
  static std::string inWords(std::future<std::string> reply) {
    if (reply.wait_for(patience) != std::future_status::ready) return "no reply";
    Reply message;
    try {
      if (!message.ParseFromString(reply.get())) return "unreadable";
    } catch (const std::future_error&) {
      return "never answered";
    }
    return Reply::ReplyType_Name(message.type()) +
           (message.has_replystring() ? " '" + message.replystring() + "'" : " absent") +
           (message.has_errorstring() ? " '" + message.errorstring() + "'" : " absent");
  }
  static std::string replyTo(Request::RequestType type, std::optional<std::uint32_t> timeOut = {}) {
    return inWords(send(type, timeOut));
  }
  static std::string replyToBytes(const std::string& bytes) {
    return inWords(socket::inproc::request(requests, bytes));
  }
  static std::string failure(const std::string& text) { return "Failure '' '" + text + "'"; }
  static constexpr const char* success = "Success '' ''";

  /// From now on every status is taken in order.
  void listen() {
    listener_.createAndConnect(socket::Protocol::Subscriber,
                               socket::SocketEndpoint::FromString("inproc://engine-status"), 0);
  }
  std::string nextStatus() {
    std::string errorText;
    if (listener_.poll(20'000, errorText) != 0) return "none came " + errorText;
    return received();
  }
  /// All that have come and were not looked at yet.
  std::vector<std::string> statusesUntilNow() {
    std::vector<std::string> statuses;
    std::string errorText;
    while (listener_.poll(0, errorText) == 0) statuses.push_back(received());
    return statuses;
  }

  /// Checks that the one record with that text has the level, and nothing but the text.
  void expectLogged(tamb::LogLevel level, const std::string& text, std::size_t count = 1) {
    ASSERT_TRUE(log_.waitFor(text, count)) << text;
    const auto records = log_.recordsWith(text);
    EXPECT_EQ(records.size(), count) << text;
    for (const auto& record : records) {
      EXPECT_EQ(record.message, text);
      EXPECT_EQ(record.level, level) << text;
    }
  }

  const test::CapturedLog log_;
  std::shared_ptr<test::ManualClock> clock_ = std::make_shared<test::ManualClock>();
  std::shared_ptr<test::FakeEngine> engine_ = std::make_shared<test::FakeEngine>();
  socket::Socket listener_{"StatusListener", socket::ClosePolicy::Newest};
  std::optional<TcpEngineBackEnd> backEnd_;

 private:
  std::string received() {
    proto::EngineStatus message;
    if (listener_.receiveProtoBuf(&message, 1'024) != 0) return "unreadable";
    return proto::EngineStatus::Status_Name(message.status());
  }
};

}  // namespace qor::multiprocess_communication
