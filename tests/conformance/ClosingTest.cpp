#include <optional>
#include <stdexcept>
#include <vector>

#include "tests/conformance/SocketTest.h"
#include "tests/support/BackgroundCall.h"
#include "tests/support/CapturedLog.h"

namespace qor::test {
namespace {

using ::testing::HasSubstr;

/// What happens to unsent messages when their socket is closed.
class Closing : public SocketTest {
 protected:
  /// Closes a publisher with a backlog of three messages, explicitly or by its destructor.
  std::chrono::milliseconds closeWithThreeUnsent(ClosePolicy::ClosePolicy policy, bool byDestructor) {
    std::optional<Socket> publisher(std::in_place, "ClosingPublisher", policy);
    publisher->createAndConnect(Protocol::Publisher, endpoint_, 0);
    for (std::uint32_t number = 1; number <= 3; ++number) sendNumber(*publisher, number);
    const Stopwatch stopwatch;
    byDestructor ? publisher.reset() : publisher->close();
    return stopwatch.elapsed();
  }

  SocketEndpoint endpoint_ = newEndpoint();
};

INSTANTIATE_TEST_SUITE_P(Over, Closing, everyTransport, transportName);

TEST_P(Closing, GivesUnsentMessagesTheTimeOfThePolicyAndSaysHowManyItDiscards) {
  for (const bool byDestructor : {false, true}) {
    for (const auto& [policy, time] : {std::pair(ClosePolicy::Brief, std::chrono::milliseconds(1'000)),
                                       std::pair(ClosePolicy::Patient, std::chrono::milliseconds(2'000))}) {
      const CapturedLog log;
      const auto elapsed = closeWithThreeUnsent(policy, byDestructor);
      EXPECT_GE(elapsed, time - std::chrono::milliseconds(50));
      EXPECT_LE(elapsed, time + atOnce);
      const std::vector<LogRecord> records = log.recordsWith("ClosingPublisher");
      ASSERT_EQ(records.size(), 1U);
      EXPECT_EQ(records[0].level, tamb::LogLevel::Warning);
      EXPECT_THAT(records[0].message, HasSubstr("3 messages"));
    }
  }
}

TEST_P(Closing, DoesNotWaitWhenMessagesSupersedeEachOther) {
  const CapturedLog log;
  EXPECT_LE(closeWithThreeUnsent(ClosePolicy::Newest, false), std::chrono::milliseconds(900));
  for (const LogRecord& record : log.recordsWith("ClosingPublisher")) {
    EXPECT_EQ(record.level, tamb::LogLevel::Debug) << record.message;
  }
}

TEST_P(Closing, DoesNotWaitWhenNothingIsUnsent) {
  const CapturedLog log;
  Socket publisher("ClosingPublisher", ClosePolicy::Patient);
  publisher.createAndConnect(Protocol::Publisher, endpoint_, 0);
  const Stopwatch stopwatch;
  publisher.close();
  EXPECT_LE(stopwatch.elapsed(), std::chrono::milliseconds(1'500));
  EXPECT_TRUE(log.recordsWith("ClosingPublisher").empty());
}

TEST_P(Closing, StillDeliversToASubscriberThatArrivesMeanwhile) {
  const CapturedLog log;
  Socket publisher("ClosingPublisher", ClosePolicy::Patient);
  publisher.createAndConnect(Protocol::Publisher, endpoint_, 0);
  for (std::uint32_t number = 1; number <= 100; ++number) sendNumber(publisher, number);
  BackgroundCall closing([&] { publisher.close(); });
  ASSERT_TRUE(closing.waitUntilBlocked());
  EXPECT_FALSE(publisher.isOpen());
  EXPECT_THROW(sendNumber(publisher, 101), std::runtime_error);
  Socket subscriber("LateSubscriber", ClosePolicy::Patient);
  subscriber.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  expectNumbers(subscriber, 1, 100);
  closing.get();
  EXPECT_TRUE(log.recordsWith("ClosingPublisher").empty());
}

TEST_P(Closing, DeliversMessagesSentJustBefore) {
  Socket publisher("ClosingPublisher", ClosePolicy::Patient);
  publisher.createAndConnect(Protocol::Publisher, endpoint_, 0);
  Socket subscriber("ClosingSubscriber", ClosePolicy::Patient);
  subscriber.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  sendNumber(publisher, 0);
  ASSERT_EQ(receiveNumber(subscriber), 0U);
  for (std::uint32_t number = 1; number <= 1'000; ++number) sendNumber(publisher, number);
  BackgroundCall closing([&] { publisher.close(); });
  expectNumbers(subscriber, 1, 1'000);
  closing.get();
}

TEST_P(Closing, MayBeAskedForByTwoThreadsAtOnce) {
  Socket publisher("ClosingPublisher", ClosePolicy::Brief);
  publisher.createAndConnect(Protocol::Publisher, endpoint_, 0);
  sendNumber(publisher, 1);
  BackgroundCall first([&] { publisher.close(); });
  BackgroundCall second([&] { publisher.close(); });
  first.get();
  second.get();
  EXPECT_FALSE(publisher.isOpen());
  publisher.createAndConnect(Protocol::Publisher, endpoint_, 0);
  EXPECT_TRUE(publisher.isOpen());
}

}  // namespace
}  // namespace qor::test
