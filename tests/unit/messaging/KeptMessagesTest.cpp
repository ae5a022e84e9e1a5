#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "runtime/messaging/KeptMessages.h"

namespace qor::socket {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

/// The store counts the sizes that it is told, so that nothing large is needed here.
using Kept = KeptMessages<int>;

const SocketLabel label{.name = "Keeper", .protocol = Protocol::Publisher, .endpoint = "inproc://kept"};

TEST(KeptMessages, ComeOutInTheirOrder) {
  Kept kept(false);
  EXPECT_TRUE(kept.empty());
  for (int i = 0; i < 3; ++i) kept.keep(i, 1, label);
  EXPECT_EQ(kept.count(), 3U);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(kept.oldest(), i);
    kept.dropOldest();
  }
  EXPECT_TRUE(kept.empty());
}

TEST(KeptMessages, AreBoundedInNumber) {
  Kept kept(false);
  for (std::size_t i = 0; i < Kept::maximumCount; ++i) kept.keep(0, 0, label);
  EXPECT_FALSE(kept.hasRoom(0));
  EXPECT_THAT([&] { kept.keep(1, 0, label); },
              ThrowsMessage<std::runtime_error>(AllOf(HasSubstr("Keeper"), HasSubstr("inproc://kept"),
                                                      HasSubstr("100000 messages of 0 bytes"),
                                                      HasSubstr("limit is 100000 messages"))));
  EXPECT_EQ(kept.count(), Kept::maximumCount);
  kept.dropOldest();
  EXPECT_TRUE(kept.hasRoom(0));
  kept.keep(1, 0, label);
  EXPECT_EQ(kept.count(), Kept::maximumCount);
}

TEST(KeptMessages, AreBoundedInBytes) {
  Kept kept(false);
  kept.keep(0, Kept::maximumBytes - 1, label);
  EXPECT_TRUE(kept.hasRoom(1));
  EXPECT_FALSE(kept.hasRoom(2));
  kept.keep(1, 1, label);
  EXPECT_TRUE(kept.hasRoom(0));
  EXPECT_THAT([&] { kept.keep(2, 1, label); },
              ThrowsMessage<std::runtime_error>(
                  AllOf(HasSubstr("2 messages of 67108864 bytes"), HasSubstr("or 67108864 bytes"))));
  EXPECT_EQ(kept.count(), 2U);
  kept.dropOldest();
  EXPECT_TRUE(kept.hasRoom(Kept::maximumBytes - 1));
  EXPECT_FALSE(kept.hasRoom(Kept::maximumBytes));
}

TEST(KeptMessages, ForgetTheBytesOfWhatHasLeft) {
  Kept kept(false);
  for (int i = 0; i < 1'000; ++i) {
    kept.keep(i, Kept::maximumBytes, label);
    kept.dropOldest();
  }
  EXPECT_TRUE(kept.hasRoom(Kept::maximumBytes));
}

TEST(KeptMessages, AreOneWhereTheNewestSupersedesTheOthers) {
  Kept kept(true);
  for (int i = 0; i < 5; ++i) {
    EXPECT_TRUE(kept.hasRoom(Kept::maximumBytes));
    kept.keep(i, Kept::maximumBytes, label);
  }
  EXPECT_EQ(kept.count(), 1U);
  EXPECT_EQ(kept.oldest(), 4);
  kept.dropOldest();
  EXPECT_TRUE(kept.empty());
}

TEST(KeptMessages, NeedNotBeCopied) {
  KeptMessages<std::unique_ptr<int>> kept(false);
  kept.keep(std::make_unique<int>(7), 1, label);
  const std::unique_ptr<int> taken = std::move(kept.oldest());
  kept.dropOldest();
  EXPECT_EQ(*taken, 7);
}

}  // namespace
}  // namespace qor::socket
