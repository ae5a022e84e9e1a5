#include <atomic>
#include <cstddef>
#include <thread>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tests/support/Eventually.h"
#include "tests/unit/multiprocess/CommandSending.h"

namespace qor::multiprocess_communication {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

constexpr const char* otherAddress = "inproc://other-commands";

/// What commands are sent as.
class TcpCommandProcessorFrontEndMessages : public CommandSendingTest {
 protected:
  void SetUp() override {
    open();
    listen();
  }
};

TEST_F(TcpCommandProcessorFrontEndMessages, HoldEveryFieldOfACommandUnderItsName) {
  push({std::make_shared<tamb::CommandMessage>(
      tamb::CommandFields{.time = tamb::MediaTime(tamb::EditRate(30'000, 1'001), -123'456'789'012, nullptr),
                          .commandName = "the name",
                          .commandId = 4'711,
                          .workflowManagerId = manager,
                          .engineId = engine,
                          .stepId = "the step"})});
  const auto message = only();
  EXPECT_EQ(message.mediatime().editrate().numerator(), 30'000U);
  EXPECT_EQ(message.mediatime().editrate().denominator(), 1'001U);
  EXPECT_EQ(message.mediatime().timenumber(), -123'456'789'012);
  EXPECT_EQ(message.commandname(), "the name");
  EXPECT_EQ(message.commandid(), 4'711U);
  EXPECT_EQ(message.workflowmanagerid(), manager);
  EXPECT_EQ(message.engineid(), 7U);
  EXPECT_EQ(message.stepid(), "the step");
  EXPECT_FALSE(message.has_commandargs());
}

TEST_F(TcpCommandProcessorFrontEndMessages, HoldEveryFieldEvenWhereItIsEmptyOrZero) {
  sender_->SetWorkflowManagerId("");
  sender_->SetEngineId(0);
  push({std::make_shared<tamb::CommandMessage>(
      tamb::CommandFields{.time = tamb::MediaTime(tamb::EditRate(0, 0), 0, nullptr)})});
  const auto message = only();
  EXPECT_TRUE(message.mediatime().editrate().has_numerator());
  EXPECT_TRUE(message.mediatime().editrate().has_denominator());
  EXPECT_EQ(message.mediatime().editrate().denominator(), 0U);
  EXPECT_TRUE(message.mediatime().has_timenumber());
  EXPECT_TRUE(message.has_commandname());
  EXPECT_TRUE(message.has_commandid());
  EXPECT_TRUE(message.has_workflowmanagerid());
  EXPECT_TRUE(message.has_engineid());
  EXPECT_TRUE(message.has_stepid());
  EXPECT_FALSE(message.has_commandargs());
}

/// The ids, the endpoint, and what cannot be had.
class TcpCommandProcessorFrontEndLife : public CommandSendingTest {
 protected:
  /// A front end whose endpoint is not bound yet.
  void construct() {
    sender_.emplace();
    sender_->SetWorkflowManagerId(manager);
    sender_->SetEngineId(engine);
  }
  static std::string invalidSocket(const std::string& description) {
    return std::string("[TcpCommandProcessorFrontEnd: Invalid socket: ") + socketName + description +
           " [not open]" + isNotTrue;
  }
};

TEST_F(TcpCommandProcessorFrontEndLife, BeginsWithoutIdsAndWithoutAnEndpoint) {
  sender_.emplace();
  EXPECT_EQ(sender_->GetWorkflowManagerId(), "");
  EXPECT_EQ(sender_->GetEngineId(), 0U);
  EXPECT_EQ(sender_->messageHeader(), "TcpCommandProcessorFrontEnd");
  EXPECT_THAT(openSockets(), IsEmpty());
}

TEST_F(TcpCommandProcessorFrontEndLife, KeepsTheIdsThatItIsGiven) {
  sender_.emplace();
  const std::string id("manager\0two", 11);
  tamb::ICommandProcessorFrontEnd& asCommandProcessor = *sender_;
  asCommandProcessor.SetWorkflowManagerId(id);
  asCommandProcessor.SetEngineId(4'294'967'295);
  EXPECT_EQ(asCommandProcessor.GetWorkflowManagerId(), id);
  EXPECT_EQ(asCommandProcessor.GetEngineId(), 4'294'967'295);
  asCommandProcessor.SetWorkflowManagerId("");
  asCommandProcessor.SetEngineId(0);
  EXPECT_EQ(asCommandProcessor.GetWorkflowManagerId(), "");
  EXPECT_EQ(asCommandProcessor.GetEngineId(), 0U);
}

TEST_F(TcpCommandProcessorFrontEndLife, MovesToAnotherEndpointWhenItIsConnectedAgain) {
  open();
  listen();
  push({item("before")});
  EXPECT_THAT(nextNames(), ElementsAre("before"));
  sender_->connectEndpoint(endpoint(otherAddress));
  push({item("after")});
  EXPECT_TRUE(nothingWasSent());
  listen(otherAddress);
  EXPECT_THAT(nextNames(), ElementsAre("after"));
  // Nobody holds the endpoint that it has left.
  socket::Socket successor("Successor", socket::ClosePolicy::Newest);
  EXPECT_NO_THROW(successor.createAndConnect(socket::Protocol::Publisher, endpoint(), 0));
}

TEST_F(TcpCommandProcessorFrontEndLife, MayBeConnectedToItsEndpointOnceMore) {
  open();
  listen();
  sender_->connectEndpoint(endpoint());
  push({item("after")});
  EXPECT_THAT(nextNames(), ElementsAre("after"));
}

TEST_F(TcpCommandProcessorFrontEndLife, PassesTheFailureOfAConnectionOnAndCanBeConnectedLater) {
  open();
  socket::Socket occupant("Occupant", socket::ClosePolicy::Newest);
  occupant.createAndConnect(socket::Protocol::Publisher, endpoint(otherAddress), 0);
  EXPECT_THAT([&] { sender_->connectEndpoint(endpoint(otherAddress)); },
              ThrowsMessage<std::runtime_error>(HasSubstr("already in use")));
  // Left before the other one was tried.
  EXPECT_THAT(openSockets(), ElementsAre("Occupant"));
  EXPECT_THAT([&] { push({item()}); },
              ThrowsMessage<tamb::TAMBRuntimeError>(
                  AllOf(HasSubstr("Invalid socket: "), HasSubstr(socketName), HasSubstr(otherAddress))));
  occupant.close();
  sender_->connectEndpoint(endpoint(otherAddress));
  listen(otherAddress);
  push({item("at last")});
  EXPECT_THAT(nextNames(), ElementsAre("at last"));
}

TEST_F(TcpCommandProcessorFrontEndLife, PassesTheEndOfTheContextOn) {
  construct();
  socket::inproc::failNext(socketName, Operation::Open, Failure::ContextTermination, "the end");
  EXPECT_THAT([&] { sender_->connectEndpoint(endpoint()); },
              ThrowsMessage<socket::ZmqContextTerminationException>("the end"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpCommandProcessorFrontEndLife, RefusesEveryBatchBeforeItIsConnectedWithoutALookAtIt) {
  construct();
  const auto watched = std::make_shared<WatchedCommand>(fields());
  expectFailure([&] { push({watched, nullptr}); }, invalidSocket(" (no endpoint)"), 40);
  expectFailure([&] { push({}); }, invalidSocket(" (no endpoint)"), 40);
  EXPECT_THAT(watched->asked(), IsEmpty());
  sender_->connectEndpoint(endpoint());
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndLife, RefusesEveryBatchAfterAConnectionThatFailed) {
  construct();
  socket::inproc::failNext(socketName, Operation::Open, Failure::RuntimeError, "no room");
  EXPECT_THAT([&] { sender_->connectEndpoint(endpoint()); }, ThrowsMessage<std::runtime_error>("no room"));
  expectFailure([&] { push({item()}); }, invalidSocket(" (Publisher inproc://commands)"), 40);
  sender_->connectEndpoint(endpoint());
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndLife, HasNoControlsWhateverTheirNameAndWhetherOrNotItIsConnected) {
  construct();
  for (const bool isConnected : {false, true}) {
    if (isConnected) sender_->connectEndpoint(endpoint());
    for (const std::string name : {"", "a control"}) {
      expectFailure([&] { sender_->GetControl(name); },
                    "[TcpCommandProcessorFrontEnd: GetControl cannot work]", 21);
      expectFailure([&] { sender_->GetStatusControl(name); },
                    "[TcpCommandProcessorFrontEnd: GetStatusControl: what the hell is this?]", 28);
    }
  }
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndLife, RefusesBatchesDuringANewConnectionOrSendsThemOnceAndWhole) {
  open();
  listen();
  socket::Socket elsewhere("ListenerElsewhere", socket::ClosePolicy::Newest);
  elsewhere.createAndConnect(socket::Protocol::Subscriber, endpoint(otherAddress), 0);
  std::atomic<std::size_t> sent = 0;
  {
    const std::jthread pushing([&](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        try {
          push(Batch(3, item(std::to_string(sent))));
          ++sent;
        } catch (const std::runtime_error&) {
          // The socket was closed just then.
          std::this_thread::yield();
        }
      }
    });
    for (int i = 1; i <= 60; ++i) {
      sender_->connectEndpoint(endpoint(i % 2 == 0 ? address : otherAddress));
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
