#include <cstddef>
#include <map>
#include <thread>

#include "tests/unit/multiprocess/NotificationBackEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<std::string> operations{
    "GetTime",           "GetStepId",    "GetNotificationLine",  "GetNotificationObject",
    "GetNotificationId", "GetCommandId", "GetWorkflowManagerId", "GetEngineId"};

/// Pushes that begin while another push is under way.
class TcpNotificationHubBackEndOverlap : public NotificationBackEndTest {
 protected:
  void SetUp() override {
    construct();
    listen();
  }

  /// A notification that makes the call the first time that this operation is asked.
  static Notification whichCalls(const std::string& operation, std::function<void()> call,
                                 const std::string& line = "outer") {
    const auto notification = std::make_shared<WatchedNotification>(fields(line));
    notification->whenAsked = [operation, call = std::move(call),
                               called = false](const std::string& asked) mutable {
      if (asked != operation || std::exchange(called, true)) return;
      call();
    };
    return notification;
  }
  static Notification tooLarge() { return notification(std::string(65'537, 'x')); }
};

TEST_F(TcpNotificationHubBackEndOverlap, WithinAnotherGoOutWholeAndAheadOfIt) {
  for (const auto& operation : operations) {
    push({notification("before"),
          whichCalls(operation,
                     [&] {
                       push({notification("inner"), notification("inner too")});
                     }),
          notification("behind")});
    EXPECT_THAT(nextLines(), ElementsAre("inner", "inner too")) << operation;
    EXPECT_THAT(nextLines(), ElementsAre("before", "outer", "behind")) << operation;
    EXPECT_TRUE(nothingWasSent()) << operation;
  }
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubBackEndOverlap, MayBeNestedDeeply) {
  std::function<void(int)> pushAtDepth = [&](int depth) {
    const std::string line = "at depth " + std::to_string(depth);
    push({whichCalls(
              "GetStepId",
              [&] {
                if (depth < 5) pushAtDepth(depth + 1);
              },
              line),
          notification("behind")});
  };
  pushAtDepth(0);
  for (int depth = 5; depth >= 0; --depth) {
    EXPECT_THAT(nextLines(), ElementsAre("at depth " + std::to_string(depth), "behind"));
  }
  EXPECT_TRUE(nothingWasSent());
}

TEST_F(TcpNotificationHubBackEndOverlap, WithinAnotherMayBeRefusedWithoutHarmToIt) {
  for (const auto& operation : operations) {
    for (const Batch& refused :
         {Batch{notification(), nullptr}, Batch{notificationOf("other", engine)}, Batch{tooLarge()}}) {
      push({notification("before"), whichCalls(operation, [&] { EXPECT_ANY_THROW(push(refused)); }),
            notification("behind")});
      EXPECT_THAT(nextLines(), ElementsAre("before", "outer", "behind")) << operation;
      EXPECT_TRUE(nothingWasSent()) << operation;
    }
  }
}

/// A guard: it held before pushes could overlap.
TEST_F(TcpNotificationHubBackEndOverlap, WithinAnotherEndItWithTheirRefusalWhenNobodyCatchesIt) {
  for (const auto& operation : operations) {
    EXPECT_THROW(push({notification("before"),
                       whichCalls(operation,
                                  [&] {
                                    push({notification(), nullptr});
                                  }),
                       notification("behind")}),
                 tamb::TAMBRuntimeError);
    EXPECT_TRUE(nothingWasSent()) << operation;
    push({notification("next")});
    EXPECT_THAT(nextLines(), ElementsAre("next")) << operation;
  }
}

TEST_F(TcpNotificationHubBackEndOverlap, OnSeveralThreadsGoOutWholeAndInTheOrderOfEachThread) {
  constexpr std::size_t threads = 4;
  constexpr std::size_t batches = 500;
  {
    std::vector<std::jthread> pushing;
    for (std::size_t thread = 0; thread < threads; ++thread) {
      pushing.emplace_back([&, thread] {
        for (std::size_t i = 0; i < batches; ++i) {
          // Long batches and short ones, so that a list that two pushes share shows soon.
          push(Batch(1 + (i + thread) % 5,
                     notification("batch " + std::to_string(i) + " of thread " + std::to_string(thread))));
        }
      });
    }
  }
  std::map<std::size_t, std::size_t> next;
  for (std::size_t i = 0; i < threads * batches; ++i) {
    const auto lines = nextLines();
    ASSERT_FALSE(lines.empty());
    const auto thread = static_cast<std::size_t>(lines.front().back() - '0');
    const std::size_t batch = next[thread]++;
    ASSERT_THAT(lines, testing::AllOf(testing::SizeIs(1 + (batch + thread) % 5),
                                      testing::Each("batch " + std::to_string(batch) + " of thread " +
                                                    std::to_string(thread))));
  }
  EXPECT_TRUE(nothingWasSent());
  EXPECT_THAT(log_.records(), IsEmpty());
}

}  // namespace
}  // namespace qor::multiprocess_communication
