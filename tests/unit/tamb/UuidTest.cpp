#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "tamb/LogContext.h"
#include "tests/unit/tamb/Threads.h"

namespace {

using tamb::test::startThreads;
using testing::SizeIs;

TEST(UUIDString, IsRandomAndInLowerCase) {
  std::set<std::string> uuids;
  for (int i = 0; i < 1'000; ++i) {
    const auto uuid = tamb::GetUUIDString();
    ASSERT_THAT(uuid, SizeIs(36));
    ASSERT_EQ(uuid.find_first_not_of("0123456789abcdef-"), std::string::npos) << uuid;
    ASSERT_EQ(uuid[8], '-');
    ASSERT_EQ(uuid[14], '4');  // The version that random UUIDs have.
    ASSERT_NE(std::string("89ab").find(uuid[19]), std::string::npos) << uuid;  // The variant.
    uuids.insert(uuid);
  }
  EXPECT_THAT(uuids, SizeIs(1'000));
}

TEST(UUIDString, DiffersBetweenThreads) {
  std::mutex mutex;
  std::set<std::string> uuids;
  startThreads(4, [&](unsigned int /*thread*/) {
    for (int i = 0; i < 100; ++i) {
      auto uuid = tamb::GetUUIDString();
      const std::lock_guard lock(mutex);
      uuids.insert(std::move(uuid));
    }
  });
  EXPECT_THAT(uuids, SizeIs(400));
}

TEST(UUIDString, DiffersBetweenAForkedChildAndItsParent) {
  tamb::GetUUIDString();  // fills the thread's reserve of random bytes, which parent and child now share
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const pid_t child = ::fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    const auto uuid = tamb::GetUUIDString();
    ::_exit(::write(ends[1], uuid.data(), uuid.size()) == 36 ? 0 : 1);
  }
  // If the child writes nothing, the read finds the end of the pipe.
  ::close(ends[1]);
  std::string childs(36, ' ');
  EXPECT_EQ(::read(ends[0], childs.data(), childs.size()), 36);
  int status = -1;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  ::close(ends[0]);
  EXPECT_NE(tamb::GetUUIDString(), childs);
}

}  // namespace
