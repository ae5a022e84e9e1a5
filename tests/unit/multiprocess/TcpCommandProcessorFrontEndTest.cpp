#include <algorithm>
#include <cstdint>
#include <limits>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tests/unit/multiprocess/CommandFrontEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

class SomeClock : public tamb::IClockInfo {
 public:
  std::string GetClockName() const override { return "some clock"; }
};

/// What the front end sends.
class TcpCommandProcessorFrontEndMessages : public CommandFrontEndTest {
 protected:
  void SetUp() override {
    connect();
    listen();
  }

  proto::CommandMessage only() {
    const auto list = next();
    if (list.messages_size() != 1) throw std::runtime_error("not one command was sent");
    EXPECT_TRUE(nothingWasSent());
    return list.messages(0);
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
  frontEnd_->SetWorkflowManagerId("");
  frontEnd_->SetEngineId(0);
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

TEST_F(TcpCommandProcessorFrontEndMessages, ExtendIdsWithZerosAndNotWithTheirSigns) {
  frontEnd_->SetEngineId(4'294'967'295);
  auto its = fields();
  its.commandId = 2'147'483'648;
  its.engineId = 4'294'967'295;
  push({std::make_shared<tamb::CommandMessage>(its)});
  const auto message = only();
  EXPECT_EQ(message.commandid(), std::uint64_t{2'147'483'648});
  EXPECT_EQ(message.engineid(), std::uint64_t{4'294'967'295});
}

TEST_F(TcpCommandProcessorFrontEndMessages, HoldTimesToTheirLimits) {
  constexpr auto most = std::numeric_limits<std::uint32_t>::max();
  for (const auto timeNumber :
       {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
    auto its = fields();
    its.time = tamb::MediaTime(tamb::EditRate(most, most - 1), timeNumber, nullptr);
    push({std::make_shared<tamb::CommandMessage>(its)});
    const auto message = only();
    EXPECT_EQ(message.mediatime().editrate().numerator(), most);
    EXPECT_EQ(message.mediatime().editrate().denominator(), most - 1);
    EXPECT_EQ(message.mediatime().timenumber(), timeNumber);
  }
}

TEST_F(TcpCommandProcessorFrontEndMessages, AreTheSameWithAndWithoutTheClockOfATime) {
  auto its = fields();
  push({std::make_shared<tamb::CommandMessage>(its)});
  its.time = tamb::MediaTime(its.time.GetEditRate(), its.time.GetTimeNumber(), std::make_shared<SomeClock>());
  push({std::make_shared<tamb::CommandMessage>(its)});
  EXPECT_EQ(next().SerializeAsString(), next().SerializeAsString());
}

TEST_F(TcpCommandProcessorFrontEndMessages, HoldTextsByteForByte) {
  using namespace std::string_literals;
  frontEnd_->SetWorkflowManagerId("manager\0 \xc3\xa4"s);
  auto its = fields();
  its.workflowManagerId = "manager\0 \xc3\xa4"s;
  its.commandName = "\0name\r\n"s;
  its.stepId = "step\0"s;
  push({std::make_shared<tamb::CommandMessage>(its)});
  const auto message = only();
  EXPECT_EQ(message.workflowmanagerid(), "manager\0 \xc3\xa4"s);
  EXPECT_EQ(message.commandname(), "\0name\r\n"s);
  EXPECT_EQ(message.stepid(), "step\0"s);
}

TEST_F(TcpCommandProcessorFrontEndMessages, HoldArgumentsOfTheFiveTypesWithTheirDefaults) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey("text", "default text", "described");
  prototype->AddDoubleKey("real", -0.5, "");
  prototype->AddUint64Key("unsigned", 1, "");
  prototype->AddInt64Key("signed", -1, "");
  prototype->AddBoolKey("flag", false, "");
  const auto arguments = tamb::CreateParametersCollectionInstance(prototype);
  arguments->SetUTF8String("text", "a text");
  arguments->SetDouble("real", 1e300);
  arguments->SetUint64("unsigned", std::numeric_limits<std::uint64_t>::max());
  arguments->SetInt64("signed", std::numeric_limits<std::int64_t>::min());
  arguments->SetBool("flag", true);
  push({commandWith(arguments)});

  const auto message = only();
  const auto expectData = [](const proto::ParametersCollectionCommon& data, bool flag, std::int64_t number,
                             std::uint64_t natural, double real, const std::string& text) {
    ASSERT_EQ(data.boolparams_size(), 1);
    EXPECT_EQ(data.boolparams(0).key(), "flag");
    EXPECT_EQ(data.boolparams(0).value(), flag);
    ASSERT_EQ(data.int64params_size(), 1);
    EXPECT_EQ(data.int64params(0).key(), "signed");
    EXPECT_EQ(data.int64params(0).value(), number);
    ASSERT_EQ(data.uint64params_size(), 1);
    EXPECT_EQ(data.uint64params(0).key(), "unsigned");
    EXPECT_EQ(data.uint64params(0).value(), natural);
    ASSERT_EQ(data.doubleparams_size(), 1);
    EXPECT_EQ(data.doubleparams(0).key(), "real");
    EXPECT_EQ(data.doubleparams(0).value(), real);
    ASSERT_EQ(data.utf8stringparams_size(), 1);
    EXPECT_EQ(data.utf8stringparams(0).key(), "text");
    EXPECT_EQ(data.utf8stringparams(0).value(), text);
    EXPECT_EQ(data.utf16stringparams_size(), 0);
  };
  expectData(message.commandargs().prototype().data(), false, -1, 1, -0.5, "default text");
  expectData(message.commandargs().data(), true, std::numeric_limits<std::int64_t>::min(),
             std::numeric_limits<std::uint64_t>::max(), 1e300, "a text");
}

TEST_F(TcpCommandProcessorFrontEndMessages, TellNoArgumentsFromArgumentsWithoutKeys) {
  const auto empty = tamb::CreateParametersCollectionInstance(tamb::CreateParametersCollectionPrototype());
  push({command(), commandWith(empty), command()});
  const auto list = next();
  ASSERT_EQ(list.messages_size(), 3);
  EXPECT_FALSE(list.messages(0).has_commandargs());
  ASSERT_TRUE(list.messages(1).has_commandargs());
  EXPECT_TRUE(list.messages(1).commandargs().prototype().has_data());
  EXPECT_TRUE(list.messages(1).commandargs().has_data());
  EXPECT_EQ(list.messages(1).commandargs().data().ByteSizeLong(), 0U);
  EXPECT_FALSE(list.messages(2).has_commandargs());
}

TEST_F(TcpCommandProcessorFrontEndMessages, HoldOneBatchEachInItsOrder) {
  const auto twice = command("twice");
  push({command("first"), twice, command("second"), twice});
  push({command("third")});
  EXPECT_THAT(nextNames(), ElementsAre("first", "twice", "second", "twice"));
  EXPECT_THAT(nextNames(), ElementsAre("third"));
  EXPECT_TRUE(nothingWasSent());
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpCommandProcessorFrontEndMessages, AreSentForBatchesWithoutCommandsToo) {
  push({});
  EXPECT_EQ(next().SerializeAsString(), "");
  EXPECT_TRUE(nothingWasSent());
}

TEST_F(TcpCommandProcessorFrontEndMessages, HoldOneCommandThatIsPushedAlone) {
  frontEnd_->PushCommand(command("alone"));
  EXPECT_THAT(nextNames(), ElementsAre("alone"));
  EXPECT_TRUE(nothingWasSent());
}

TEST_F(TcpCommandProcessorFrontEndMessages, HoldNothingOfTheBatchesBefore) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey("text", std::string(1'000, 'x'), "");
  const auto arguments = tamb::CreateParametersCollectionInstance(prototype);
  push({command("lonely")});
  const std::string alone = next().SerializeAsString();
  push({commandWith(arguments), commandWith(arguments), commandWith(arguments)});
  next();
  push({command("lonely")});
  EXPECT_EQ(next().SerializeAsString(), alone);
  // Refused in its second command, and refused by the socket.
  EXPECT_ANY_THROW(push({commandWith(arguments), nullptr}));
  push({command("lonely")});
  EXPECT_EQ(next().SerializeAsString(), alone);
  EXPECT_ANY_THROW(push({commandWith(arguments), commandOfListSize(65'536)}));
  push({command("lonely")});
  EXPECT_EQ(next().SerializeAsString(), alone);
  EXPECT_TRUE(nothingWasSent());
}

TEST_F(TcpCommandProcessorFrontEndMessages, AreKeptForTheFirstSubscriberCompleteAndInOrder) {
  listener_.close();
  for (int i = 0; i < 1'000; ++i) {
    push({command("first of " + std::to_string(i)), command("second of " + std::to_string(i))});
  }
  push({});
  listen();
  for (int i = 0; i < 1'000; ++i) {
    ASSERT_THAT(nextNames(), ElementsAre("first of " + std::to_string(i), "second of " + std::to_string(i)));
  }
  EXPECT_THAT(nextNames(), IsEmpty());
  EXPECT_TRUE(nothingWasSent());
}

TEST_F(TcpCommandProcessorFrontEndMessages, ReachEverySubscriber) {
  socket::Socket second("SecondListener", socket::ClosePolicy::Newest);
  second.createAndConnect(socket::Protocol::Subscriber, endpoint(), 0);
  push({command("for both")});
  EXPECT_THAT(nextNames(), ElementsAre("for both"));
  proto::CommandMessageList list;
  ASSERT_EQ(second.receiveProtoBuf(&list, 65'536), 0);
  EXPECT_EQ(list.messages(0).commandname(), "for both");
}

/// The object itself: its ids, its endpoint and its end.
class TcpCommandProcessorFrontEndLife : public CommandFrontEndTest {
 protected:
  static std::vector<std::string> openSockets() {
    std::vector<std::string> names;
    for (const auto& state : socket::inproc::sockets()) names.push_back(state.name);
    return names;
  }
};

TEST_F(TcpCommandProcessorFrontEndLife, BeginsWithoutIdsAndWithoutAnEndpoint) {
  frontEnd_.emplace();
  EXPECT_EQ(frontEnd_->GetWorkflowManagerId(), "");
  EXPECT_EQ(frontEnd_->GetEngineId(), 0U);
  EXPECT_EQ(frontEnd_->messageHeader(), "TcpCommandProcessorFrontEnd");
  EXPECT_THAT(openSockets(), IsEmpty());
}

TEST_F(TcpCommandProcessorFrontEndLife, KeepsTheIdsThatItIsGiven) {
  frontEnd_.emplace();
  const std::string id("manager\0two", 11);
  tamb::ICommandProcessorFrontEnd& asCommandProcessor = *frontEnd_;
  asCommandProcessor.SetWorkflowManagerId(id);
  asCommandProcessor.SetEngineId(4'294'967'295);
  EXPECT_EQ(asCommandProcessor.GetWorkflowManagerId(), id);
  EXPECT_EQ(asCommandProcessor.GetEngineId(), 4'294'967'295);
  asCommandProcessor.SetWorkflowManagerId("");
  asCommandProcessor.SetEngineId(0);
  EXPECT_EQ(asCommandProcessor.GetWorkflowManagerId(), "");
  EXPECT_EQ(asCommandProcessor.GetEngineId(), 0U);
}

TEST_F(TcpCommandProcessorFrontEndLife, BindsItsEndpointAsAPublisher) {
  connect();
  const auto sockets = socket::inproc::sockets();
  ASSERT_EQ(sockets.size(), 1U);
  EXPECT_EQ(sockets.front().name, socketName);
  EXPECT_EQ(sockets.front().protocol, socket::Protocol::Publisher);
  EXPECT_EQ(sockets.front().endpoint, address);
}

TEST_F(TcpCommandProcessorFrontEndLife, PushesASingleCommandThroughTheVirtualBatch) {
  class Intercepted : public TcpCommandProcessorFrontEnd {
   public:
    std::vector<Batch> batches;
    void PushCommands(Batch commands) override { batches.push_back(std::move(commands)); }
  };
  Intercepted frontEnd;
  const auto pushed = command();
  frontEnd.PushCommand(pushed);
  frontEnd.PushCommand(nullptr);
  EXPECT_THAT(frontEnd.batches, ElementsAre(ElementsAre(pushed), ElementsAre(nullptr)));
}

TEST_F(TcpCommandProcessorFrontEndLife, MovesToAnotherEndpointWhenItIsConnectedAgain) {
  connect();
  listen();
  push({command("before")});
  EXPECT_THAT(nextNames(), ElementsAre("before"));
  frontEnd_->connectEndpoint(endpoint(otherAddress));
  push({command("after")});
  EXPECT_TRUE(nothingWasSent());
  listen(otherAddress);
  EXPECT_THAT(nextNames(), ElementsAre("after"));
  // Nobody holds the endpoint that it has left.
  socket::Socket successor("Successor", socket::ClosePolicy::Newest);
  EXPECT_NO_THROW(successor.createAndConnect(socket::Protocol::Publisher, endpoint(), 0));
}

TEST_F(TcpCommandProcessorFrontEndLife, MayBeConnectedToItsEndpointOnceMore) {
  connect();
  listen();
  frontEnd_->connectEndpoint(endpoint());
  push({command("after")});
  EXPECT_THAT(nextNames(), ElementsAre("after"));
}

TEST_F(TcpCommandProcessorFrontEndLife, PassesTheFailureOfAConnectionOnAndCanBeConnectedLater) {
  connect();
  socket::Socket occupant("Occupant", socket::ClosePolicy::Newest);
  occupant.createAndConnect(socket::Protocol::Publisher, endpoint(otherAddress), 0);
  EXPECT_THAT([&] { frontEnd_->connectEndpoint(endpoint(otherAddress)); },
              ThrowsMessage<std::runtime_error>(HasSubstr("already in use")));
  // Left before the other one was tried.
  EXPECT_THAT(openSockets(), ElementsAre("Occupant"));
  EXPECT_THAT([&] { push({command()}); },
              ThrowsMessage<tamb::TAMBRuntimeError>(
                  AllOf(HasSubstr("Invalid socket: "), HasSubstr(socketName), HasSubstr(otherAddress))));
  occupant.close();
  frontEnd_->connectEndpoint(endpoint(otherAddress));
  listen(otherAddress);
  push({command("at last")});
  EXPECT_THAT(nextNames(), ElementsAre("at last"));
}

TEST_F(TcpCommandProcessorFrontEndLife, PassesTheEndOfTheContextOn) {
  construct();
  socket::inproc::failNext(socketName, Operation::Open, Failure::ContextTermination, "the end");
  EXPECT_THAT([&] { frontEnd_->connectEndpoint(endpoint()); },
              ThrowsMessage<socket::ZmqContextTerminationException>("the end"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpCommandProcessorFrontEndLife, ClosesItsSocketAtItsEnd) {
  connect();
  frontEnd_.reset();
  EXPECT_THAT(openSockets(), IsEmpty());
}

TEST_F(TcpCommandProcessorFrontEndLife, GivesWhatNobodyHasTakenTwoSecondsAtItsEnd) {
  connect();
  push({command()});
  frontEnd_.reset();
  ASSERT_EQ(log_.records().size(), 1U);
  EXPECT_THAT(log_.records().front().message,
              AllOf(HasSubstr(socketName), HasSubstr("1 messages"), HasSubstr("within 2000 ms")));
}

}  // namespace
}  // namespace qor::multiprocess_communication
