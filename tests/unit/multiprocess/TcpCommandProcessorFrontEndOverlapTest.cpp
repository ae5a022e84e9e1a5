#include <atomic>
#include <cstddef>
#include <map>
#include <thread>

#include "tests/support/Eventually.h"
#include "tests/unit/multiprocess/CommandFrontEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<std::string> operations{
    "GetCommandArgs",       "GetTime",     "GetCommandName", "GetCommandId",
    "GetWorkflowManagerId", "GetEngineId", "GetStepId"};

/// Pushes that begin while another push is under way.
class TcpCommandProcessorFrontEndOverlap : public CommandFrontEndTest {
 protected:
  void SetUp() override {
    connect();
    listen();
  }

  /// A command that makes the call the first time that this operation is asked.
  static Command whichCalls(const std::string& operation, std::function<void()> call,
                            const std::string& name = "outer") {
    const auto command = std::make_shared<WatchedCommand>(fields(name));
    command->whenAsked = [operation, call = std::move(call),
                          called = false](const std::string& asked) mutable {
      if (asked != operation || std::exchange(called, true)) return;
      call();
    };
    return command;
  }
};

TEST_F(TcpCommandProcessorFrontEndOverlap, WithinAnotherGoOutWholeAndAheadOfIt) {
  for (const auto& operation : operations) {
    push({command("before"),
          whichCalls(operation,
                     [&] {
                       push({command("inner"), command("inner too")});
                     }),
          command("behind")});
    EXPECT_THAT(nextNames(), ElementsAre("inner", "inner too")) << operation;
    EXPECT_THAT(nextNames(), ElementsAre("before", "outer", "behind")) << operation;
    EXPECT_TRUE(nothingWasSent()) << operation;
  }
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpCommandProcessorFrontEndOverlap, MayBeNestedDeeply) {
  std::function<void(int)> pushAtDepth = [&](int depth) {
    const std::string name = "at depth " + std::to_string(depth);
    push({whichCalls(
              "GetStepId",
              [&] {
                if (depth < 5) pushAtDepth(depth + 1);
              },
              name),
          command("behind")});
  };
  pushAtDepth(0);
  for (int depth = 5; depth >= 0; --depth) {
    EXPECT_THAT(nextNames(), ElementsAre("at depth " + std::to_string(depth), "behind"));
  }
  EXPECT_TRUE(nothingWasSent());
}

TEST_F(TcpCommandProcessorFrontEndOverlap, WithinAnotherMayBeRefusedWithoutHarmToIt) {
  for (const auto& operation : operations) {
    for (const Batch& refused : {Batch{command(), nullptr}, Batch{commandWith(floatArguments())},
                                 Batch{commandOfListSize(65'537)}}) {
      push({command("before"), whichCalls(operation, [&] { EXPECT_ANY_THROW(push(refused)); }),
            command("behind")});
      EXPECT_THAT(nextNames(), ElementsAre("before", "outer", "behind")) << operation;
      EXPECT_TRUE(nothingWasSent()) << operation;
    }
  }
}

/// A guard: it held before pushes could overlap.
TEST_F(TcpCommandProcessorFrontEndOverlap, WithinAnotherEndItWithTheirRefusalWhenNobodyCatchesIt) {
  for (const auto& operation : operations) {
    EXPECT_THROW(push({command("before"),
                       whichCalls(operation,
                                  [&] {
                                    push({command(), nullptr});
                                  }),
                       command("behind")}),
                 tamb::TAMBRuntimeError);
    EXPECT_TRUE(nothingWasSent()) << operation;
    push({command("next")});
    EXPECT_THAT(nextNames(), ElementsAre("next")) << operation;
  }
}

TEST_F(TcpCommandProcessorFrontEndOverlap, OnSeveralThreadsGoOutWholeAndInTheOrderOfEachThread) {
  constexpr std::size_t threads = 4;
  constexpr std::size_t batches = 500;
  const auto arguments = tamb::CreateParametersCollectionInstance([] {
    auto prototype = tamb::CreateParametersCollectionPrototype();
    prototype->AddUTF8StringKey("text", "some text that is too long for a small string", "");
    return prototype;
  }());
  {
    std::vector<std::jthread> pushing;
    for (std::size_t thread = 0; thread < threads; ++thread) {
      pushing.emplace_back([&, thread] {
        for (std::size_t i = 0; i < batches; ++i) {
          const std::string name = "batch " + std::to_string(i) + " of thread " + std::to_string(thread);
          // Long batches and short ones, so that a list that two pushes share shows soon.
          push(Batch(1 + (i + thread) % 5, i % 2 == 0 ? commandWith(arguments, name) : command(name)));
        }
      });
    }
  }
  std::map<std::size_t, std::size_t> next;
  for (std::size_t i = 0; i < threads * batches; ++i) {
    const auto names = nextNames();
    ASSERT_FALSE(names.empty());
    const auto thread = static_cast<std::size_t>(names.front().back() - '0');
    const std::size_t batch = next[thread]++;
    ASSERT_THAT(names, testing::AllOf(testing::SizeIs(1 + (batch + thread) % 5),
                                      testing::Each("batch " + std::to_string(batch) + " of thread " +
                                                    std::to_string(thread))));
  }
  EXPECT_TRUE(nothingWasSent());
  EXPECT_THAT(log_.records(), IsEmpty());
}

/// A guard: it held before pushes could overlap.
TEST_F(TcpCommandProcessorFrontEndOverlap, WithANewConnectionAreRefusedOrArriveOnceAndWhole) {
  socket::Socket elsewhere("ListenerElsewhere", socket::ClosePolicy::Newest);
  elsewhere.createAndConnect(socket::Protocol::Subscriber, endpoint(otherAddress), 0);
  std::atomic<std::size_t> sent = 0;
  {
    const std::jthread pushing([&](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        try {
          push(Batch(3, command(std::to_string(sent))));
          ++sent;
        } catch (const std::runtime_error&) {
          // The socket was closed just then.
          std::this_thread::yield();
        }
      }
    });
    for (int i = 1; i <= 60; ++i) {
      frontEnd_->connectEndpoint(endpoint(i % 2 == 0 ? address : otherAddress));
      ASSERT_TRUE(test::eventually([&, before = sent.load()] { return sent > before; }));
    }
  }
  // Each listener got some of them, in order.
  std::vector<bool> arrived(sent);
  const auto takeFrom = [&](socket::Socket& listener) {
    std::string errorText;
    for (std::size_t from = 0; listener.poll(0, errorText) == 0;) {
      proto::CommandMessageList list;
      ASSERT_EQ(listener.receiveProtoBuf(&list, 65'536), 0);
      ASSERT_EQ(list.messages_size(), 3);
      const std::size_t number = std::stoul(list.messages(0).commandname());
      ASSERT_LT(number, arrived.size());
      ASSERT_GE(number, from);
      ASSERT_FALSE(arrived.at(number));
      arrived.at(number) = true;
      from = number;
    }
  };
  takeFrom(listener_);
  takeFrom(elsewhere);
  EXPECT_THAT(arrived, testing::Each(true));
}

}  // namespace
}  // namespace qor::multiprocess_communication
