#include <gtest/gtest.h>

#include <vector>

#include "bench/compare/Conversions.h"
#include "bench/compare/TypicalMessages.h"

namespace qor::bench {
namespace {

const CommandList commands{typicalCommand(3, true), typicalCommand(4, true)};
const NotificationList notifications{typicalNotification(3, true), typicalNotification(4, true)};

template <class List>
std::vector<Arrival> arrivalsOf(const List& list, Conversion conversion) {
  std::vector<Arrival> arrivals;
  read(
      list, [&](const Arrival& arrival) { arrivals.push_back(arrival); }, conversion);
  return arrivals;
}

/// The messages of both conversions, each in a reused list.
template <class WireList, class List>
void expectTheSameMessages(const List& messages) {
  WireList ofObjects;
  WireList ofValues;
  for (int i = 0; i < 2; ++i) {
    write(messages, ofObjects, Conversion::Objects);
    write(messages, ofValues, Conversion::PlainValues);
  }
  EXPECT_EQ(ofValues.DebugString(), ofObjects.DebugString());
}

TEST(Conversions, PlainValuesMakeTheSameMessagesAsObjects) {
  expectTheSameMessages<wire::CommandMessageList>(commands);
  expectTheSameMessages<wire::NotificationMessageList>(notifications);
}

TEST(Conversions, BothReadIdsAndParameters) {
  wire::CommandMessageList list;
  write(commands, list);
  for (const auto conversion : {Conversion::Objects, Conversion::PlainValues}) {
    const auto arrivals = arrivalsOf(list, conversion);
    ASSERT_EQ(arrivals.size(), 2U);
    EXPECT_EQ(arrivals[1].id, 4U);
    EXPECT_TRUE(arrivals[1].hasParameters);
  }
}

TEST(Conversions, PlainValuesAreReadAndNotOnlyReceived) {
  wire::NotificationMessageList list;
  write(notifications, list);
  list.mutable_messages(1)->mutable_notificationobject()->mutable_data()->mutable_int64params(0)->set_value(
      12);
  const auto arrivals = arrivalsOf(list, Conversion::PlainValues);
  EXPECT_TRUE(arrivals.at(0).hasParameters);
  EXPECT_FALSE(arrivals.at(1).hasParameters);
}

}  // namespace
}  // namespace qor::bench
