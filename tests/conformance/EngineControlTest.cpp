#include <atomic>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TcpEngineBackEnd.h"
#include "TcpEngineFrontEnd.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/conformance/SocketTest.h"
#include "tests/support/BackgroundCall.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeEngine.h"

namespace qor::test {
namespace {

using multiprocess_communication::TcpEngineBackEnd;
using multiprocess_communication::TcpEngineFrontEnd;
using std::chrono::milliseconds;

/// Both ends of the engine control channel, connected as in a host and an engine process.
class EngineControl : public SocketTest {
 protected:
  void TearDown() override {
    engine_->finish();
    frontEnd_.reset();
    backEnd_.reset();
  }

  void startBackEnd() { backEnd_.emplace(engine_, requestEndpoint_, statusEndpoint_); }
  void connectFrontEnd() {
    frontEnd_.emplace();
    frontEnd_->SetInitConfig(TcpEngineFrontEnd::GenerateConfig(requestEndpoint_, statusEndpoint_));
  }

  /// Receives statuses until that one arrives.
  static bool comesTo(Socket& subscriber, proto::EngineStatus::Status status) {
    std::string errorText;
    proto::EngineStatus message;
    while (subscriber.poll(milliseconds(patience).count(), errorText) == 0) {
      if (subscriber.receiveProtoBuf(&message, 1'024) == 0 && message.status() == status) return true;
    }
    return false;
  }

  bool seesTheEngineRun() {
    try {
      frontEnd_->WaitForStop(0);
      return false;
    } catch (const tamb::TAMBRuntimeError&) {
      return true;
    }
  }

  const CapturedLog log_;
  SocketEndpoint requestEndpoint_ = newEndpoint();
  SocketEndpoint statusEndpoint_ = newEndpoint();
  std::shared_ptr<FakeEngine> engine_ = std::make_shared<FakeEngine>();
  std::optional<TcpEngineBackEnd> backEnd_;
  std::optional<TcpEngineFrontEnd> frontEnd_;
};

INSTANTIATE_TEST_SUITE_P(Over, EngineControl, everyTransport, transportName);

TEST_P(EngineControl, DrivesAnEngineFromItsFirstPingToItsEnd) {
  std::atomic<unsigned int> pinged = 0;
  engine_->onPing = [&](unsigned int timeOut) { pinged = timeOut; };
  startBackEnd();
  BackgroundCall supervising([&] { backEnd_->waitForFrontEndTermination(); });
  connectFrontEnd();
  frontEnd_->Ping(1'234);
  EXPECT_EQ(pinged, 1'234U);

  BackgroundCall running([&] { frontEnd_->Run(); });
  ASSERT_TRUE(engine_->waitUntilRunning());
  frontEnd_->Ping(4'321);
  EXPECT_EQ(pinged, 4'321U);
  // Longer than the time-out for the start of a run.
  EXPECT_FALSE(running.endsWithin(milliseconds(2'500)));
  EXPECT_THROW(frontEnd_->WaitForStop(0), tamb::TAMBRuntimeError);
  frontEnd_->RequestStop();
  EXPECT_NO_THROW(frontEnd_->WaitForStop(milliseconds(patience).count()));
  EXPECT_TRUE(running.endsWithin(atOnce));
  EXPECT_NO_THROW(running.get());

  // A back end runs its engine only once.
  EXPECT_NO_THROW(frontEnd_->Run());
  EXPECT_EQ(engine_->runs(), 1);
  EXPECT_EQ(log_.recordsWith("Failed sending ping to remote engine on:").size(), 1U);

  EXPECT_FALSE(supervising.endsWithin(milliseconds(0)));
  frontEnd_.reset();
  EXPECT_TRUE(supervising.endsWithin(atOnce));
  EXPECT_TRUE(log_.recordsWith("heartbeat").empty());
  EXPECT_TRUE(log_.recordsWith("termination request").empty());
}

TEST_P(EngineControl, ADestroyedBackEndEndsTheRunOfItsFrontEnd) {
  startBackEnd();
  connectFrontEnd();
  BackgroundCall running([&] { frontEnd_->Run(); });
  ASSERT_TRUE(engine_->waitUntilRunning());
  EXPECT_FALSE(running.endsWithin(milliseconds(500)));
  BackgroundCall destroying([&] { backEnd_.reset(); });
  // The engine itself is not affected.
  EXPECT_TRUE(running.endsWithin(atOnce));
  EXPECT_NO_THROW(running.get());
  engine_->finish();
  EXPECT_TRUE(destroying.endsWithin(patience));
  EXPECT_FALSE(log_.recordsWith("Engine status change: EndOfLife").empty());
}

TEST_P(EngineControl, AFrontEndWithoutPeerFailsSoonAndIsDestroyedSoon) {
  startBackEnd();
  connectFrontEnd();
  frontEnd_->Ping(1);
  EXPECT_TRUE(log_.recordsWith("Failed sending ping").empty());
  backEnd_.reset();
  BackgroundCall pinging([&] { frontEnd_->Ping(2); });
  EXPECT_TRUE(pinging.endsWithin(atOnce));
  EXPECT_NO_THROW(pinging.get());
  EXPECT_EQ(log_.recordsWith("Failed sending ping").size(), 1U);
  BackgroundCall destroying([&] { frontEnd_.reset(); });
  EXPECT_TRUE(destroying.endsWithin(atOnce));
  EXPECT_NO_THROW(destroying.get());
  EXPECT_EQ(log_.recordsWith("Failed sending termination request to backend: ").size(), 1U);
}

TEST_P(EngineControl, APeerThatDiesInTheMiddleOfAPingFailsThePing) {
  Socket peer("DyingPeer", ClosePolicy::Newest);
  peer.createAndConnect(Protocol::Replier, requestEndpoint_, 0);
  frontEnd_.emplace();
  frontEnd_->SetInitConfig(TcpEngineFrontEnd::GenerateConfig(requestEndpoint_, statusEndpoint_));
  awaitMessage(peer);  // the heartbeat, which gets no reply
  BackgroundCall pinging([&] { frontEnd_->Ping(1); });
  ASSERT_TRUE(pinging.waitUntilBlocked());
  peer.close();
  EXPECT_TRUE(pinging.endsWithin(atOnce));
  EXPECT_NO_THROW(pinging.get());
  EXPECT_TRUE(log_.waitFor("failed sending heartbeat"));
  EXPECT_EQ(log_.recordsWith("Failed sending ping").size(), 1U);
}

TEST_P(EngineControl, ARequestThatIsNeverAnsweredBlocksNoOther) {
  startBackEnd();
  Socket silent("SilentRequester", ClosePolicy::Newest);
  silent.createAndConnect(Protocol::Requester, requestEndpoint_, 0);
  proto::EngineFrontEndRequest request;
  request.set_type(proto::EngineFrontEndRequest::RequestStart);
  silent.sendProtoBuf(&request);
  connectFrontEnd();
  BackgroundCall pinging([&] { frontEnd_->Ping(1); });
  EXPECT_TRUE(pinging.endsWithin(atOnce));
  EXPECT_TRUE(log_.recordsWith("Failed sending ping").empty());
  // The requester continues as well.
  request.set_type(proto::EngineFrontEndRequest::HeartBeat);
  silent.sendProtoBuf(&request);
  awaitMessage(silent);
  proto::EngineBackEndReply reply;
  EXPECT_EQ(silent.receiveProtoBuf(&reply, 8'192), 0);
  EXPECT_EQ(reply.type(), proto::EngineBackEndReply::Success);
}

TEST_P(EngineControl, TheContextsEndEndsBothSidesWithoutAnException) {
  startBackEnd();
  connectFrontEnd();
  // All four sockets are open once the front end has received the status Running.
  BackgroundCall running([&] { frontEnd_->Run(); });
  ASSERT_TRUE(eventually([&] { return seesTheEngineRun(); }));
  frontEnd_->RequestStop();
  EXPECT_NO_THROW(running.get());
  socket::shutDownContext();
  EXPECT_TRUE(log_.waitFor("Aborting status reception: "));
  EXPECT_NO_THROW(frontEnd_->Ping(1));
  EXPECT_NO_THROW(frontEnd_->RequestStop());
  EXPECT_TRUE(log_.waitFor("heartBeatThreadFunction aborting: "));
  EXPECT_TRUE(log_.waitFor("Aborting TCP engine backend: "));
  for (auto& destroy :
       std::vector<std::function<void()>>{[&] { frontEnd_.reset(); }, [&] { backEnd_.reset(); }}) {
    BackgroundCall destroying([&] { destroy(); });
    EXPECT_TRUE(destroying.endsWithin(atOnce));
    EXPECT_NO_THROW(destroying.get());
  }
}

/// Simulates a busy machine: two threads that never wait.
class BusyMachine {
 public:
  BusyMachine() = default;
  ~BusyMachine() { isOver_ = true; }
  BusyMachine(const BusyMachine&) = delete;
  BusyMachine& operator=(const BusyMachine&) = delete;

 private:
  void work() {
    while (!isOver_) ++work_;
  }

  std::atomic<bool> isOver_{false};
  std::atomic<unsigned int> work_{0};
  std::jthread first_{[this] { work(); }};
  std::jthread second_{[this] { work(); }};
};

TEST_P(EngineControl, EachOfManyRunsThatTakeNoTimeIsSeen) {
  constexpr int lanes = 10;
  // More of them in a manual run.
  const char* const wanted = std::getenv("QOR_SHORT_RUNS");  // NOLINT(concurrency-mt-unsafe)
  const int runs = wanted == nullptr ? 200 : std::stoi(wanted);
  const BusyMachine busy;
  std::mutex mutex;
  std::atomic<int> next = 0;
  std::atomic<int> missed = 0;
  std::vector<std::thread> threads;
  for (int lane = 0; lane < lanes; ++lane) {
    threads.emplace_back([&] {
      while (next++ < runs) {
        const auto [requests, statuses] = [&] {
          const std::lock_guard lock(mutex);
          return std::pair(newEndpoint(), newEndpoint());
        }();
        const auto engine = std::make_shared<FakeEngine>();
        engine->finish();
        const TcpEngineBackEnd backEnd(engine, requests, statuses);
        TcpEngineFrontEnd frontEnd;
        try {
          frontEnd.SetInitConfig(TcpEngineFrontEnd::GenerateConfig(requests, statuses));
          frontEnd.Run();
        } catch (const std::runtime_error&) {
          ++missed;
        }
        if (engine->runs() != 1) ++missed;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(missed, 0);
  EXPECT_TRUE(log_.recordsWith("Failed sending ping").empty());
}

TEST_P(EngineControl, TheEndOfLifeOfAThousandBackEndsReachesEachSubscriber) {
  constexpr int lanes = 10;
  constexpr int livesOfALane = 100;
  std::mutex mutex;
  std::atomic<int> missed = 0;
  std::vector<std::thread> threads;
  for (int lane = 0; lane < lanes; ++lane) {
    threads.emplace_back([&] {
      for (int life = 0; life < livesOfALane; ++life) {
        const auto [requests, statuses] = [&] {
          const std::lock_guard lock(mutex);
          return std::pair(newEndpoint(), newEndpoint());
        }();
        Socket subscriber("StatusListener", ClosePolicy::Newest);
        std::optional<TcpEngineBackEnd> backEnd(std::in_place, std::make_shared<FakeEngine>(), requests,
                                                statuses);
        subscriber.createAndConnect(Protocol::Subscriber, statuses, 0);
        if (!comesTo(subscriber, proto::EngineStatus::Idle)) ++missed;
        backEnd.reset();
        if (!comesTo(subscriber, proto::EngineStatus::EndOfLife)) ++missed;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(missed, 0);
}

}  // namespace
}  // namespace qor::test
