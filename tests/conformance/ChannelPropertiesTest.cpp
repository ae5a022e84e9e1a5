#include "tests/conformance/SocketTest.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/ChannelProperties.h"
#include "tests/support/TestSeed.h"

namespace qor::test {
namespace {

/// The command channel and the notification channel, with random messages. TestSeed describes how to repeat a
/// run.
class MessageChannels : public SocketTest {
 protected:
  static constexpr std::size_t batches = 500;

  const CapturedLog log_;
  const TestSeed seed_;
  RandomMessages random_{seed_.value()};
};

INSTANTIATE_TEST_SUITE_P(Over, MessageChannels, everyTransport, transportName);

TEST_P(MessageChannels, CarryAnyBatchOfCommands) {
  expectCommandsToCross(newEndpoint(), random_, batches);
  EXPECT_TRUE(log_.records().empty());
}

TEST_P(MessageChannels, CarryAnyBatchOfNotifications) {
  std::set<std::string> ids;
  expectNotificationsToCross(newEndpoint(), random_, batches, ids);
  EXPECT_TRUE(log_.records().empty());
}

}  // namespace
}  // namespace qor::test
