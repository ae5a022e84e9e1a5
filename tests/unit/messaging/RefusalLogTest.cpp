#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "runtime/messaging/RefusalLog.h"

namespace qor::socket {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const SocketLabel label{.name = "Status", .protocol = Protocol::Publisher, .endpoint = "ipc://s?readers=1"};
const RefusalLog::Clock::time_point start{std::chrono::hours(1)};

TEST(RefusalLog, HasALineForEach) {
  RefusalLog log(label, 1);
  log.note("process 7", start);
  EXPECT_THAT(log.takeLines(),
              ElementsAre("Status (Publisher ipc://s?readers=1): refused a subscriber, process "
                          "7: the limit of one reader is reached"));
  EXPECT_THAT(log.takeLines(), IsEmpty());
  log.note("process 8", start);
  EXPECT_THAT(log.takeLines(), SizeIs(1));
}

TEST(RefusalLog, SaysHowManyReadersThereAre) {
  RefusalLog log(label, 3);
  log.note("process 7", start);
  EXPECT_THAT(log.takeLines(), ElementsAre(EndsWith(": the limit of 3 readers is reached")));
}

TEST(RefusalLog, CountsThoseBeyondTenInTenSeconds) {
  RefusalLog log(label, 1);
  for (int i = 0; i < 100'000; ++i) log.note("process 7", start + std::chrono::microseconds(i));
  EXPECT_THAT(log.takeLines(), SizeIs(10));
  log.note("process 8", start + RefusalLog::span);
  EXPECT_THAT(log.takeLines(),
              ElementsAre(EndsWith("refused 99990 more subscribers: the limit of one reader is reached"),
                          EndsWith("process 8: the limit of one reader is reached")));
}

TEST(RefusalLog, CountsThoseWithoutALineAtItsEndToo) {
  RefusalLog log(label, 1);
  for (int i = 0; i < 12; ++i) log.note("process 7", start);
  log.conclude();
  EXPECT_THAT(log.takeLines(), SizeIs(11));
  log.conclude();
  EXPECT_THAT(log.takeLines(), IsEmpty());
}

}  // namespace
}  // namespace qor::socket
