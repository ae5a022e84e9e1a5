#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "runtime/messaging/SendBacklog.h"

namespace qor::socket {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

/// Sizes are arguments, so the tests need no large messages.
using Backlog = SendBacklog<int>;

const SocketLabel label{.name = "Keeper", .protocol = Protocol::Publisher, .endpoint = "inproc://kept"};

TEST(ASendBacklog, KeepsTheOrder) {
  Backlog backlog(false);
  EXPECT_TRUE(backlog.empty());
  for (int i = 0; i < 3; ++i) backlog.keep(i, 1, label);
  EXPECT_EQ(backlog.count(), 3U);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(backlog.oldest(), i);
    backlog.dropOldest();
  }
  EXPECT_TRUE(backlog.empty());
}

TEST(ASendBacklog, IsBoundedInNumber) {
  Backlog backlog(false);
  for (std::size_t i = 0; i < Backlog::maximumCount; ++i) backlog.keep(0, 0, label);
  EXPECT_FALSE(backlog.hasRoom(0));
  EXPECT_THAT([&] { backlog.keep(1, 0, label); },
              ThrowsMessage<std::runtime_error>(AllOf(HasSubstr("Keeper"), HasSubstr("inproc://kept"),
                                                      HasSubstr("100000 messages of 0 bytes"),
                                                      HasSubstr("limit is 100000 messages"))));
  EXPECT_EQ(backlog.count(), Backlog::maximumCount);
  backlog.dropOldest();
  EXPECT_TRUE(backlog.hasRoom(0));
  backlog.keep(1, 0, label);
  EXPECT_EQ(backlog.count(), Backlog::maximumCount);
}

TEST(ASendBacklog, IsBoundedInBytes) {
  Backlog backlog(false);
  backlog.keep(0, Backlog::maximumBytes - 1, label);
  EXPECT_TRUE(backlog.hasRoom(1));
  EXPECT_FALSE(backlog.hasRoom(2));
  backlog.keep(1, 1, label);
  EXPECT_TRUE(backlog.hasRoom(0));
  EXPECT_THAT([&] { backlog.keep(2, 1, label); },
              ThrowsMessage<std::runtime_error>(
                  AllOf(HasSubstr("2 messages of 67108864 bytes"), HasSubstr("or 67108864 bytes"))));
  EXPECT_EQ(backlog.count(), 2U);
  backlog.dropOldest();
  EXPECT_TRUE(backlog.hasRoom(Backlog::maximumBytes - 1));
  EXPECT_FALSE(backlog.hasRoom(Backlog::maximumBytes));
}

TEST(ASendBacklog, SubtractsTheBytesOfSentMessages) {
  Backlog backlog(false);
  for (int i = 0; i < 1'000; ++i) {
    backlog.keep(i, Backlog::maximumBytes, label);
    backlog.dropOldest();
  }
  EXPECT_TRUE(backlog.hasRoom(Backlog::maximumBytes));
}

TEST(ASendBacklog, HoldsTheNewestAloneWhereItSupersedesTheOthers) {
  Backlog backlog(true);
  for (int i = 0; i < 5; ++i) {
    EXPECT_TRUE(backlog.hasRoom(Backlog::maximumBytes));
    backlog.keep(i, Backlog::maximumBytes, label);
  }
  EXPECT_EQ(backlog.count(), 1U);
  EXPECT_EQ(backlog.oldest(), 4);
  backlog.dropOldest();
  EXPECT_TRUE(backlog.empty());
}

TEST(ASendBacklog, NeedsNoCopies) {
  SendBacklog<std::unique_ptr<int>> backlog(false);
  backlog.keep(std::make_unique<int>(7), 1, label);
  const std::unique_ptr<int> taken = std::move(backlog.oldest());
  backlog.dropOldest();
  EXPECT_EQ(*taken, 7);
}

}  // namespace
}  // namespace qor::socket
