#include <gtest/gtest.h>

#include <set>
#include <string>

#include "Serializers.h"
#include "runtime/inproc/Network.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/ChannelProperties.h"
#include "tests/support/TestSeed.h"

// Random messages, another sequence in each run. A test prints the seed of its sequence; with it in the
// environment variable QOR_TEST_SEED the same sequence comes again.

namespace qor::multiprocess_communication {
namespace {

using test::differenceAfterCrossing;

constexpr std::size_t rounds = 10'000;

template <class Message>
Message throughBytes(const Message& message) {
  std::string bytes;
  EXPECT_TRUE(message.SerializeToString(&bytes));
  Message parsed;
  EXPECT_TRUE(parsed.ParseFromString(bytes));
  return parsed;
}

class SerializersProperties : public testing::Test {
 protected:
  const test::CapturedLog log_;
  const test::TestSeed seed_;
  test::RandomMessages random_{seed_.value()};
};

TEST_F(SerializersProperties, AnyCollectionComesBackAsItWasWritten) {
  proto::ParametersCollectionInstance usedAgain;
  for (std::size_t round = 0; round < rounds; ++round) {
    SCOPED_TRACE(round);
    const auto written = random_.collection();
    const auto message = Serializers::ParametersCollectionInstanceToProtoBuf(written);
    const auto read = Serializers::ParametersCollectionInstanceFromProtoBuf(throughBytes(message));
    ASSERT_EQ(differenceAfterCrossing(*written, *read), "");

    const std::string bytes = message.SerializeAsString();
    Serializers::ParametersCollectionInstanceToProtoBuf(written, usedAgain);
    ASSERT_EQ(usedAgain.SerializeAsString(), bytes);
    // Once grouped, the keys stay as they are.
    ASSERT_EQ(Serializers::ParametersCollectionInstanceToProtoBuf(read).SerializeAsString(), bytes);
  }
  EXPECT_TRUE(log_.records().empty());
}

/// A channel over the in-process sockets, in several lives: with other ids, and with the one end or the other
/// there first.
class ChannelProperties : public SerializersProperties {
 public:
  ~ChannelProperties() override { EXPECT_TRUE(socket::inproc::sockets().empty()); }

 protected:
  static constexpr std::size_t lives = 5;

  const socket::SocketEndpoint endpoint_ = socket::SocketEndpoint::FromString("inproc://round-trips");
};

class CommandChannelProperties : public ChannelProperties {};

TEST_F(CommandChannelProperties, AnyBatchArrivesAsItWasPushed) {
  for (std::size_t life = 0; life < lives && !HasFatalFailure(); ++life) {
    SCOPED_TRACE(life);
    test::expectCommandsToCross(endpoint_, random_, rounds / lives);
  }
  EXPECT_TRUE(log_.records().empty());
}

class NotificationChannelProperties : public ChannelProperties {};

TEST_F(NotificationChannelProperties, AnyBatchArrivesAsItWasPushedButForIdsAndErrors) {
  std::set<std::string> ids;
  for (std::size_t life = 0; life < lives && !HasFatalFailure(); ++life) {
    SCOPED_TRACE(life);
    test::expectNotificationsToCross(endpoint_, random_, rounds / lives, ids);
  }
  EXPECT_TRUE(log_.records().empty());
}

}  // namespace
}  // namespace qor::multiprocess_communication
