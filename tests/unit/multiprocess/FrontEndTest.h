#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TcpEngine.pb.h"
#include "TcpEngineFrontEnd.h"
#include "runtime/inproc/Network.h"
#include "tests/support/BackgroundCall.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/ManualClock.h"

namespace qor::multiprocess_communication {

/// The other side of a front end, without an engine: writes down what is asked, and answers as a test wants.
class ScriptedBackEnd {
 public:
  using Request = proto::EngineFrontEndRequest;
  using Reply = proto::EngineBackEndReply;

  explicit ScriptedBackEnd(const std::string& endpoint) {
    replier_.createAndConnect(socket::Protocol::Replier, socket::SocketEndpoint::FromString(endpoint), 0);
    thread_ = std::thread([this] { serve(); });
  }
  ~ScriptedBackEnd() {
    isStopped_ = true;
    thread_.join();
  }
  ScriptedBackEnd(const ScriptedBackEnd&) = delete;
  ScriptedBackEnd& operator=(const ScriptedBackEnd&) = delete;

  /// What is answered to a type of request from now on; with nothing it stays unanswered. Success otherwise.
  void answer(Request::RequestType type, std::function<std::optional<Reply>()> answer) {
    const std::lock_guard lock(mutex_);
    answers_.emplace_back(type, std::move(answer));
  }
  /// Waits, at most 10 s, until so many requests of a type have come.
  bool waitFor(Request::RequestType type, std::size_t count = 1) {
    std::unique_lock lock(mutex_);
    return received_.wait_for(lock, std::chrono::seconds(10), [&] { return countOf(type) >= count; });
  }
  std::size_t count(Request::RequestType type) {
    const std::lock_guard lock(mutex_);
    return countOf(type);
  }
  std::vector<Request> requests() {
    const std::lock_guard lock(mutex_);
    return requests_;
  }

  static std::optional<Reply> reply(Reply::ReplyType type, const std::optional<std::string>& errorString) {
    Reply reply;
    reply.set_type(type);
    if (errorString) reply.set_errorstring(*errorString);
    return reply;
  }

 private:
  std::size_t countOf(Request::RequestType type) const {
    return static_cast<std::size_t>(
        std::count_if(requests_.begin(), requests_.end(),
                      [type](const Request& request) { return request.type() == type; }));
  }

  void serve() {
    std::string errorText;
    while (!isStopped_) {
      try {
        if (replier_.poll(10, errorText) != 0) continue;
        Request request;
        if (replier_.receiveProtoBuf(&request, 65'536) == 0) serve(request);
      } catch (const socket::ZmqContextTerminationException&) {
        return;
      } catch (const std::runtime_error&) {  // whoever asked has gone
      }
    }
  }
  void serve(const Request& request) {
    {
      const std::lock_guard lock(mutex_);
      requests_.push_back(request);
      received_.notify_all();
    }
    auto reply = replyTo(request.type());
    try {
      if (reply) replier_.sendProtoBuf(&*reply);
    } catch (const std::runtime_error&) {  // whoever asked has gone
    }
  }
  std::optional<Reply> replyTo(Request::RequestType type) {
    std::function<std::optional<Reply>()> answer;
    {
      const std::lock_guard lock(mutex_);
      for (const auto& [wanted, wantedAnswer] : answers_) {
        if (wanted == type) answer = wantedAnswer;
      }
    }
    return answer ? answer() : reply(Reply::Success, "");
  }

  std::mutex mutex_;
  std::condition_variable received_;
  std::vector<std::pair<Request::RequestType, std::function<std::optional<Reply>()>>> answers_;
  std::vector<Request> requests_;
  std::atomic<bool> isStopped_{false};
  socket::Socket replier_{"ScriptedBackEnd", socket::ClosePolicy::Newest};
  std::thread thread_;
};

/// A front end with a clock that stands still, and a scripted back end.
class FrontEndTest : public ::testing::Test {
 public:
  ~FrontEndTest() override { socket::inproc::reset(); }

 protected:
  using Request = proto::EngineFrontEndRequest;
  using Reply = proto::EngineBackEndReply;
  using Operation = socket::inproc::Operation;
  using Failure = socket::inproc::Failure;
  using milliseconds = std::chrono::milliseconds;

  static constexpr const char* commands = "TcpEngineFrontEndCommandSocket";
  static constexpr const char* statuses = "TcpEngineFrontEndStatusReceptionSocket";
  static constexpr const char* requestAddress = "inproc://front-end-requests";
  static constexpr const char* statusAddress = "inproc://front-end-status";
  static constexpr std::chrono::seconds patience{20};
  /// How the command socket is called in log lines.
  static constexpr const char* commandLabel =
      "TcpEngineFrontEndCommandSocket (Requester inproc://front-end-requests)";

  void TearDown() override {
    frontEnd_.reset();
    backEnd_.reset();
    EXPECT_TRUE(socket::inproc::sockets().empty());
  }

  /// Configures the front end, which waits for a first status: one comes that changes nothing.
  void configure(const std::string& requestEndpoint = requestAddress,
                 const std::string& statusEndpoint = statusAddress) {
    test::BackgroundCall configuring([&] {
      frontEnd_->SetInitConfig(TcpEngineFrontEnd::GenerateConfig(requestEndpoint, statusEndpoint));
    });
    ASSERT_TRUE(waitUntilReceiving(statusEndpoint));
    publish(proto::EngineStatus::Undefined);
    configuring.get();
  }
  /// Waits, at most 10 s, until the front end polls for statuses at that endpoint.
  static bool waitUntilReceiving(const std::string& statusEndpoint) {
    return socket::inproc::waitUntil(statuses, [&](const socket::inproc::SocketState& state) {
      return state.endpoint == statusEndpoint && state.blockedIn == Operation::Poll;
    });
  }
  /// Returns once the first heartbeat is over and a first status has come.
  void connect() {
    configure();
    ASSERT_TRUE(backEnd_->waitFor(Request::HeartBeat));
    ASSERT_TRUE(clock_->waitForWaitOf(milliseconds(1'000)));
  }
  /// The same with a heart that stops at its first beat: nobody but the test's own calls uses the clock then,
  /// and the command socket.
  void connectWithoutHeartBeat() {
    socket::inproc::failNext(commands, Operation::Send, Failure::ContextTermination, "no heart");
    configure();
    ASSERT_TRUE(log_.waitFor("no heart"));
  }
  /// Returns when the front end has taken it.
  static void publish(proto::EngineStatus::Status status) {
    proto::EngineStatus message;
    message.set_status(status);
    publishBytes(message.SerializeAsString());
  }
  static void publishBytes(const std::string& bytes) {
    socket::inproc::deliver(statuses, bytes);
    // Taken, and waiting for the next.
    ASSERT_TRUE(socket::inproc::waitUntil(statuses, [](const socket::inproc::SocketState& state) {
      return state.unreceived == 0 && state.blockedIn == Operation::Poll;
    }));
  }
  /// Lets time pass once somebody waits for it.
  void pass(milliseconds awaited) {
    ASSERT_TRUE(clock_->waitForWaitOf(awaited));
    clock_->advance(awaited);
  }

  void answer(Request::RequestType type, Reply::ReplyType replyType,
              const std::optional<std::string>& errorString) {
    backEnd_->answer(type, [=] { return ScriptedBackEnd::reply(replyType, errorString); });
  }
  /// The request stays unanswered by its peer, and these bytes come as its reply.
  void answerWithBytes(Request::RequestType type, const std::string& bytes) {
    backEnd_->answer(type, [bytes]() -> std::optional<Reply> {
      socket::inproc::deliver(commands, bytes);
      return std::nullopt;
    });
  }

  /// Checks that there are so many records of that text, with nothing but it, at the level of errors.
  void expectLogged(const std::string& text, std::size_t count = 1) {
    ASSERT_TRUE(log_.waitFor(text, count)) << text;
    std::size_t found = 0;
    for (const auto& record : log_.recordsWith(text)) {
      // The text of a failure is in the message of whoever survives it, too.
      if (record.message != text) continue;
      ++found;
      EXPECT_EQ(record.level, tamb::LogLevel::Error) << text;
      EXPECT_EQ(record.source, "src/TcpEngineFrontEnd") << text;
    }
    EXPECT_EQ(found, count) << text;
  }

  const test::CapturedLog log_;
  std::shared_ptr<test::ManualClock> clock_ = std::make_shared<test::ManualClock>();
  std::optional<ScriptedBackEnd> backEnd_{requestAddress};
  std::optional<TcpEngineFrontEnd> frontEnd_{clock_};
};

}  // namespace qor::multiprocess_communication
