#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <thread>

#include "tests/support/BackgroundCall.h"
#include "tests/support/Gate.h"
#include "tests/unit/multiprocess/CommandSending.h"
#include "tests/unit/multiprocess/NotificationSending.h"

namespace qor::multiprocess_communication {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Pushes that begin while another push is under way.
template <class Channel>
class SendingOverlap : public SendingTest<Channel> {
 protected:
  void SetUp() override {
    this->open();
    this->listen();
  }

  /// An item that makes the call the first time that this operation is asked.
  static typename Channel::Item whichCalls(const std::string& operation, std::function<void()> call,
                                           const std::string& name = "outer") {
    const auto item = std::make_shared<typename Channel::Watched>(SendingOverlap::fields(name));
    item->whenAsked = [operation, call = std::move(call), called = false](const std::string& asked) mutable {
      if (asked != operation || std::exchange(called, true)) return;
      call();
    };
    return item;
  }
  void pushAtDepth(int depth) {
    const std::string name = "at depth " + std::to_string(depth);
    this->push({whichCalls(
                    "GetStepId",
                    [=, this] {
                      if (depth < 5) pushAtDepth(depth + 1);
                    },
                    name),
                this->item("behind")});
  }
};

using Channels = testing::Types<CommandSending, NotificationSending>;
TYPED_TEST_SUITE(SendingOverlap, Channels);

TYPED_TEST(SendingOverlap, WithinAnotherGoesOutWholeAndAheadOfIt) {
  for (const auto& operation : TypeParam::operations()) {
    this->push({this->item("before"),
                this->whichCalls(operation,
                                 [&] {
                                   this->push({this->item("inner"), this->item("inner too")});
                                 }),
                this->item("behind")});
    EXPECT_THAT(this->nextNames(), ElementsAre("inner", "inner too")) << operation;
    EXPECT_THAT(this->nextNames(), ElementsAre("before", "outer", "behind")) << operation;
    EXPECT_TRUE(this->nothingWasSent()) << operation;
  }
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

TYPED_TEST(SendingOverlap, MayBeNestedDeeply) {
  this->pushAtDepth(0);
  for (int depth = 5; depth >= 0; --depth) {
    EXPECT_THAT(this->nextNames(), ElementsAre("at depth " + std::to_string(depth), "behind"));
  }
  EXPECT_TRUE(this->nothingWasSent());
}

TYPED_TEST(SendingOverlap, WithinAnotherMayBeRefusedWithoutHarmToIt) {
  const std::vector<typename TypeParam::Batch> refusals{{this->item(), nullptr},
                                                        {this->itemOf("other", 7)},
                                                        {this->itemWith(this->floatParameters())},
                                                        {this->itemOfListSize(65'537)}};
  for (const auto& operation : TypeParam::operations()) {
    for (const auto& refused : refusals) {
      this->push({this->item("before"),
                  this->whichCalls(operation, [&] { EXPECT_ANY_THROW(this->push(refused)); }),
                  this->item("behind")});
      EXPECT_THAT(this->nextNames(), ElementsAre("before", "outer", "behind")) << operation;
      EXPECT_TRUE(this->nothingWasSent()) << operation;
    }
  }
}

TYPED_TEST(SendingOverlap, WithinAnotherEndsItWithItsRefusalWhenNobodyCatchesIt) {
  for (const auto& operation : TypeParam::operations()) {
    EXPECT_THROW(this->push({this->item("before"),
                             this->whichCalls(operation,
                                              [&] {
                                                this->push({this->item(), nullptr});
                                              }),
                             this->item("behind")}),
                 tamb::TAMBRuntimeError);
    EXPECT_TRUE(this->nothingWasSent()) << operation;
    this->push({this->item("next")});
    EXPECT_THAT(this->nextNames(), ElementsAre("next")) << operation;
  }
}

TYPED_TEST(SendingOverlap, OnSeveralThreadsGoesOutWholeAndInTheOrderOfEachThread) {
  constexpr std::size_t threads = 4;
  constexpr std::size_t batches = 500;
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey("text", "some text that is too long for a small string", "");
  const auto parameters = tamb::CreateParametersCollectionInstance(prototype);
  {
    std::vector<std::jthread> pushing;
    for (std::size_t thread = 0; thread < threads; ++thread) {
      pushing.emplace_back([&, thread] {
        for (std::size_t i = 0; i < batches; ++i) {
          const std::string name = "batch " + std::to_string(i) + " of thread " + std::to_string(thread);
          // Long batches and short ones, so that a list that two pushes share shows soon.
          const auto item = i % 2 == 0 ? this->itemWith(parameters, name) : this->item(name);
          this->push(typename TypeParam::Batch(1 + (i + thread) % 5, item));
        }
      });
    }
  }
  std::map<std::size_t, std::size_t> next;
  for (std::size_t i = 0; i < threads * batches; ++i) {
    const auto names = this->nextNames();
    ASSERT_FALSE(names.empty());
    const auto thread = static_cast<std::size_t>(names.front().back() - '0');
    const std::size_t batch = next[thread]++;
    ASSERT_THAT(names, testing::AllOf(testing::SizeIs(1 + (batch + thread) % 5),
                                      testing::Each("batch " + std::to_string(batch) + " of thread " +
                                                    std::to_string(thread))));
  }
  EXPECT_TRUE(this->nothingWasSent());
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

/// A socket takes one thread at a time, whatever the sockets of this process put up with.
TYPED_TEST(SendingOverlap, OnAnotherThreadWaitsForTheSendUnderWayAndForNothingElse) {
  test::Gate gate;
  std::atomic<int> sending = 0;
  std::atomic<int> most = 0;
  socket::inproc::intercept(TypeParam::socketName, socket::inproc::Operation::Send,
                            [&](const google::protobuf::Message&) {
                              most = std::max(most.load(), ++sending);
                              gate.pass();
                              --sending;
                            });
  test::BackgroundCall first([&] { this->push({this->item("first")}); });
  ASSERT_TRUE(gate.waitUntilReached());
  std::atomic<bool> wasRead = false;
  test::BackgroundCall second([&] {
    this->push({this->whichCalls(
        "GetStepId", [&] { wasRead = true; }, "second")});
  });
  EXPECT_TRUE(second.waitUntilBlocked());
  EXPECT_TRUE(wasRead);
  EXPECT_EQ(sending, 1);
  gate.open();
  first.get();
  second.get();
  EXPECT_EQ(most, 1);
  EXPECT_THAT(this->nextNames(), ElementsAre("first"));
  EXPECT_THAT(this->nextNames(), ElementsAre("second"));
}

}  // namespace
}  // namespace qor::multiprocess_communication
