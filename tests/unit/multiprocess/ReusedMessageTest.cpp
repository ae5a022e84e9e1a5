#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>

#include "CommandAndNotification.pb.h"
#include "Serializers.h"

namespace qor::multiprocess_communication {
namespace {

using List = proto::CommandMessageList;
constexpr std::size_t limit = ReusedMessage<List>::maximumBytes;

/// Takes memory that a cleared list keeps.
void fill(List& list) {
  for (int i = 0; i < 1'000; ++i) list.add_messages()->set_commandname(std::string(50, 'x'));
}
/// What the list's arena takes from the heap; names are apart from it.
std::size_t memoryOf(List& list) { return list.GetArena()->SpaceAllocated(); }
/// That of a list that has never been filled.
std::size_t memoryOfANewList() {
  ReusedMessage<List> reused;
  return memoryOf(reused.get());
}

TEST(ReusedMessage, KeepsItsMemoryUntilItHasHeldItsLimit) {
  ReusedMessage<List> reused;
  fill(reused.get());
  const std::size_t filled = memoryOf(reused.get());
  ASSERT_GT(filled, memoryOfANewList());
  reused.account(limit - 2);
  reused.clear();
  EXPECT_EQ(reused.get().messages_size(), 0);
  EXPECT_EQ(memoryOf(reused.get()), filled);
  reused.account(1);
  reused.clear();
  EXPECT_EQ(memoryOf(reused.get()), filled);
  reused.account(1);
  reused.clear();
  EXPECT_EQ(reused.get().messages_size(), 0);
  EXPECT_EQ(memoryOf(reused.get()), memoryOfANewList());
}

TEST(ReusedMessage, BeginsItsCountAnewWithItsMemory) {
  ReusedMessage<List> reused;
  for (int i = 0; i < 3; ++i) {
    fill(reused.get());
    reused.account(limit - 1);
    reused.clear();
    EXPECT_GT(memoryOf(reused.get()), memoryOfANewList());
    reused.account(1);
    reused.clear();
    EXPECT_EQ(memoryOf(reused.get()), memoryOfANewList());
  }
}

TEST(ReusedMessage, KeepsNothingOfAUseThatFailed) {
  ReusedMessage<List> reused;
  fill(reused.get());
  reused.accountForUnknown();
  reused.clear();
  EXPECT_EQ(reused.get().messages_size(), 0);
  EXPECT_EQ(memoryOf(reused.get()), memoryOfANewList());
}

TEST(ReusedMessage, IsLimitedToSixteenOfTheLargestMessages) { EXPECT_EQ(limit, 16U * 65'536U); }

TEST(SpareMessage, GivesTheSameOneEmptiedToOneCallAfterTheOther) {
  SpareMessage<List> spare;
  auto taken = spare.take();
  const auto* first = taken.get();
  fill(taken->get());
  spare.giveBack(std::move(taken));
  taken = spare.take();
  EXPECT_EQ(taken.get(), first);
  EXPECT_EQ(taken->get().messages_size(), 0);
}

TEST(SpareMessage, GivesAnotherOneWhileTheFirstIsTaken) {
  SpareMessage<List> spare;
  auto outer = spare.take();
  auto inner = spare.take();
  ASSERT_NE(outer.get(), inner.get());
  spare.giveBack(std::move(inner));
  // Freed by the other, which takes its place.
  const auto* last = outer.get();
  spare.giveBack(std::move(outer));
  EXPECT_EQ(spare.take().get(), last);
}

TEST(SpareMessage, GivesANewOneForOneThatWasNotGivenBack) {
  SpareMessage<List> spare;
  fill(spare.take()->get());
  EXPECT_EQ(spare.take()->get().messages_size(), 0);
}

}  // namespace
}  // namespace qor::multiprocess_communication
