#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TcpEngine.pb.h"
#include "qor/socket/Socket.h"
#include "runtime/zmq/ConcurrentReplier.h"
#include "tests/support/BackgroundCall.h"
#include "tests/support/Eventually.h"
#include "tests/support/Gate.h"
#include "tests/support/PaddedMessage.h"
#include "tests/support/TemporaryDirectory.h"

namespace qor::socket {
namespace {

namespace proto = multiprocess_communication::proto;
using test::BackgroundCall;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;
using Request = ConcurrentReplier::Request;

constexpr std::chrono::seconds patience{20};
constexpr unsigned int sizeBound = 65'536;

proto::EngineBackEndReply replyOf(std::uint32_t number) {
  proto::EngineBackEndReply reply;
  reply.set_type(proto::EngineBackEndReply::Success);
  reply.set_replystring(std::to_string(number));
  return reply;
}

/// A requester with one pending request at a time. Used on one thread.
class Asker {
 public:
  explicit Asker(const SocketEndpoint& endpoint) {
    socket_.createAndConnect(Protocol::Requester, endpoint, std::chrono::milliseconds(patience).count());
  }

  void send(std::uint32_t number) {
    proto::EngineFrontEndRequest request;
    request.set_type(proto::EngineFrontEndRequest::Ping);
    request.set_timeoutmilliseconds(number);
    socket_.sendProtoBuf(&request);
  }
  /// Throws if none arrives.
  std::uint32_t receive() {
    std::string errorText;
    const int polled = socket_.poll(std::chrono::milliseconds(patience).count(), errorText);
    if (polled != 0) throw std::runtime_error("no reply: " + std::to_string(polled) + ' ' + errorText);
    proto::EngineBackEndReply reply;
    if (socket_.receiveProtoBuf(&reply, sizeBound) != 0) throw std::runtime_error("that is no reply");
    return static_cast<std::uint32_t>(std::stoul(reply.replystring()));
  }
  std::uint32_t ask(std::uint32_t number) {
    send(number);
    return receive();
  }
  bool hasReply() {
    std::string errorText;
    return socket_.poll(0, errorText) == 0;
  }

 private:
  Socket socket_{"ConcurrentReplierTestAsker", ClosePolicy::Newest};
};

class AConcurrentReplier : public ::testing::Test {
 protected:
  /// The next request and its number; throws if none arrives.
  std::pair<std::uint32_t, Request> next() {
    proto::EngineFrontEndRequest message;
    auto request = replier_->receive(patience, message, sizeBound);
    if (!request) throw std::runtime_error("no request came");
    return {message.timeoutmilliseconds(), std::move(*request)};
  }
  void answerNext() {
    auto [number, request] = next();
    replier_->answer(std::move(request), replyOf(number));
  }

  const test::TemporaryDirectory directory_;
  const SocketEndpoint endpoint_ =
      SocketEndpoint::FromString("ipc://" + (directory_.path() / "replier").string());
  std::unique_ptr<ConcurrentReplier> replier_ =
      std::make_unique<ConcurrentReplier>("ConcurrentReplierTest", endpoint_);
};

TEST_F(AConcurrentReplier, AnswersInAnyOrder) {
  std::vector<std::unique_ptr<Asker>> askers;
  std::map<std::uint32_t, Request> requests;
  for (std::uint32_t number = 0; number < 8; ++number) {
    askers.push_back(std::make_unique<Asker>(endpoint_));
    askers.back()->send(number);
    requests.insert(next());
  }
  for (auto request = requests.rbegin(); request != requests.rend(); ++request) {
    replier_->answer(std::move(request->second), replyOf(request->first));
    EXPECT_EQ(askers.at(request->first)->receive(), request->first);
  }
}

TEST_F(AConcurrentReplier, ServesOthersWhileARequestTakesItsTime) {
  Asker slow(endpoint_);
  slow.send(1);
  auto [number, request] = next();
  Asker quick(endpoint_);
  for (std::uint32_t i = 100; i < 200; ++i) {
    quick.send(i);
    answerNext();
    EXPECT_EQ(quick.receive(), i);
  }
  EXPECT_FALSE(slow.hasReply());
  replier_->answer(std::move(request), replyOf(number));
  EXPECT_EQ(slow.receive(), 1U);
}

TEST_F(AConcurrentReplier, ReturnsAtOnceWhenItIsWoken) {
  proto::EngineFrontEndRequest message;
  BackgroundCall<bool> receiving([&] { return replier_->receive(patience, message, sizeBound).has_value(); });
  ASSERT_TRUE(receiving.waitUntilBlocked());
  replier_->wake();
  ASSERT_TRUE(receiving.endsWithin(patience / 2));
  EXPECT_FALSE(receiving.get());
  // Or the next time.
  replier_->wake();
  EXPECT_FALSE(replier_->receive(patience, message, sizeBound));
}

TEST_F(AConcurrentReplier, IsNotBlockedByARequestThatIsDropped) {
  Asker dropped(endpoint_);
  dropped.send(1);
  next();
  EXPECT_FALSE(dropped.hasReply());
  dropped.send(2);
  answerNext();
  EXPECT_EQ(dropped.receive(), 2U);
}

TEST_F(AConcurrentReplier, ContinuesWhenAHandlerThrows) {
  Asker unlucky(endpoint_);
  unlucky.send(1);
  const auto handle = [this] {
    const auto request = next();
    throw std::runtime_error("the handler of request " + std::to_string(request.first));
  };
  EXPECT_THAT(handle, ThrowsMessage<std::runtime_error>(HasSubstr("request 1")));
  Asker lucky(endpoint_);
  lucky.send(2);
  answerNext();
  EXPECT_EQ(lucky.receive(), 2U);
}

TEST_F(AConcurrentReplier, AllowsItsOwnerToRefuseAtALimit) {
  constexpr std::size_t mostAtOnce = 3;
  constexpr std::uint32_t refusal = 999;
  std::vector<std::unique_ptr<Asker>> askers;
  std::map<std::uint32_t, Request> held;
  for (std::uint32_t number = 0; number < 5; ++number) {
    askers.push_back(std::make_unique<Asker>(endpoint_));
    askers.back()->send(number);
    auto request = next();
    if (held.size() < mostAtOnce) {
      held.insert(std::move(request));
    } else {
      replier_->answer(std::move(request.second), replyOf(refusal));
      EXPECT_EQ(askers.back()->receive(), refusal);
    }
  }
  // After one reply there is room again, for a request that was refused.
  replier_->answer(std::move(held.extract(1).mapped()), replyOf(1));
  EXPECT_EQ(askers[1]->receive(), 1U);
  askers[4]->send(4);
  held.insert(next());
  for (auto& [number, request] : held) {
    replier_->answer(std::move(request), replyOf(number));
    EXPECT_EQ(askers.at(number)->receive(), number);
  }
}

TEST_F(AConcurrentReplier, ClearsAMessageThatCannotBeParsed) {
  Asker asker(endpoint_);
  Socket large("LargeRequester", ClosePolicy::Newest);
  large.createAndConnect(Protocol::Requester, endpoint_, std::chrono::milliseconds(patience).count());
  proto::EngineFrontEndRequest request;
  request.set_type(proto::EngineFrontEndRequest::Ping);
  ASSERT_TRUE(request.ParseFromString(test::paddedTo(101, request)));
  large.sendProtoBuf(&request);
  proto::EngineFrontEndRequest message;
  message.set_type(proto::EngineFrontEndRequest::Run);
  EXPECT_TRUE(replier_->receive(patience, message, 100));
  EXPECT_FALSE(message.has_type());
  asker.send(1);
  answerNext();
  EXPECT_EQ(asker.receive(), 1U);
}

TEST_F(AConcurrentReplier, ReportsThatARequesterHasDisconnected) {
  std::optional<Request> request;
  {
    Asker asker(endpoint_);
    asker.send(1);
    request = next().second;
  }
  // The disconnection is noticed a little later; another peer's request arrives at some time after that.
  const auto isMissed = [&] {
    Asker asker(endpoint_);
    asker.send(2);
    auto later = next().second;
    std::swap(*request, later);
    try {
      replier_->answer(std::move(later), replyOf(1));
      return false;
    } catch (const std::runtime_error& error) {
      EXPECT_THAT(error.what(), HasSubstr("ConcurrentReplierTest"));
      return true;
    }
  };
  EXPECT_TRUE(test::eventually(isMissed));
}

TEST_F(AConcurrentReplier, MayBeDestroyedWhileRequestsWait) {
  Asker first(endpoint_);
  Asker second(endpoint_);
  first.send(1);
  second.send(2);
  std::vector<Request> held;
  held.push_back(next().second);
  held.push_back(next().second);
  replier_.reset();
  // They own what they keep of it.
  held.clear();
  EXPECT_THROW(first.receive(), std::runtime_error);
  EXPECT_THROW(second.receive(), std::runtime_error);
}

/// A replier whose requests are handled by one thread each, as in a service.
class AServiceWithThreads : public AConcurrentReplier {
 protected:
  static constexpr std::uint32_t stubborn = 1'000'000;

  ~AServiceWithThreads() override { stop(); }

  void start() {
    serving_ = std::thread([this] { serve(); });
  }
  /// Waits for all running handlers.
  void stop() {
    gate_.open();
    if (!serving_.joinable()) return;
    shouldStop_ = true;
    replier_->wake();
    serving_.join();
  }
  bool isHandling(std::size_t count) const { return handling_ >= count; }

  test::Gate gate_;

 private:
  void serve() {
    std::vector<std::thread> handlers;
    while (!shouldStop_ || handling_ > 0) {
      proto::EngineFrontEndRequest message;
      if (auto request = replier_->receive(patience, message, sizeBound)) {
        const auto number = message.timeoutmilliseconds();
        waiting_.emplace(number, std::move(*request));
        ++handling_;
        handlers.emplace_back([this, number] { handle(number); });
      }
      answerHandled();
    }
    for (std::thread& handler : handlers) handler.join();
    answerHandled();
  }
  void handle(std::uint32_t number) {
    if (number >= stubborn) gate_.pass();
    {
      const std::lock_guard lock(mutex_);
      handled_.push_back(number);
    }
    --handling_;
    replier_->wake();
  }
  void answerHandled() {
    std::vector<std::uint32_t> handled;
    {
      const std::lock_guard lock(mutex_);
      handled.swap(handled_);
    }
    for (const auto number : handled) {
      replier_->answer(std::move(waiting_.extract(number).mapped()), replyOf(number));
    }
  }

  std::atomic<bool> shouldStop_{false};
  std::atomic<std::size_t> handling_{0};
  std::mutex mutex_;
  std::vector<std::uint32_t> handled_;
  std::map<std::uint32_t, Request> waiting_;
  std::thread serving_;
};

TEST_F(AServiceWithThreads, AnswersManyRequestersAtOnceEachWithItsOwn) {
  constexpr std::uint32_t askers = 8;
  constexpr std::uint32_t rounds = 50;
  start();
  std::atomic<std::uint32_t> right{0};
  std::vector<std::thread> threads;
  for (std::uint32_t asker = 0; asker < askers; ++asker) {
    threads.emplace_back([this, asker, &right] {
      Asker its(endpoint_);
      for (std::uint32_t round = 0; round < rounds; ++round) {
        const auto number = asker * rounds + round;
        if (its.ask(number) == number) ++right;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(right, askers * rounds);
}

TEST_F(AServiceWithThreads, AnswersOthersWhileSlowOnesRunAndEndsWithThem) {
  start();
  Asker slow(endpoint_);
  Asker slower(endpoint_);
  slow.send(stubborn);
  slower.send(stubborn + 1);
  ASSERT_TRUE(test::eventually([this] { return isHandling(2); }));
  Asker quick(endpoint_);
  for (std::uint32_t number = 0; number < 20; ++number) EXPECT_EQ(quick.ask(number), number);
  EXPECT_FALSE(slow.hasReply());
  // Its destructor waits for them, and they are answered.
  stop();
  EXPECT_EQ(slow.receive(), stubborn);
  EXPECT_EQ(slower.receive(), stubborn + 1);
}

}  // namespace
}  // namespace qor::socket
