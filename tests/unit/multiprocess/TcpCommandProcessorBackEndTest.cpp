#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include "tamb/IParametersCollection.h"
#include "tests/unit/multiprocess/CommandBackEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

/// What the back end pushes into the local command processor.
class TcpCommandProcessorBackEndCommands : public CommandBackEndTest {
 protected:
  void SetUp() override { construct(); }

  /// The only command of the only message.
  Command pushed(const proto::CommandMessageList& list) {
    deliver(list);
    return arrived(1).front();
  }
};

TEST_F(TcpCommandProcessorBackEndCommands, HaveEveryFieldThatWasSent) {
  proto::CommandMessageList list;
  auto& message = *list.add_messages();
  message.mutable_mediatime()->mutable_editrate()->set_numerator(30'000);
  message.mutable_mediatime()->mutable_editrate()->set_denominator(1'001);
  message.mutable_mediatime()->set_timenumber(-123'456'789'012);
  message.set_commandname("the name");
  message.set_commandid(4'711);
  message.set_workflowmanagerid("the manager");
  message.set_engineid(12);
  message.set_stepid("the step");
  const auto command = pushed(list);
  EXPECT_EQ(command->GetTime().GetEditRate(), tamb::EditRate(1'001, 30'000));
  EXPECT_EQ(command->GetTime().GetTimeNumber(), -123'456'789'012);
  EXPECT_EQ(command->GetTime().GetClockInfo(), nullptr);
  EXPECT_EQ(command->GetCommandName(), "the name");
  EXPECT_EQ(command->GetCommandId(), 4'711U);
  EXPECT_EQ(command->GetWorkflowManagerId(), "the manager");
  EXPECT_EQ(command->GetEngineId(), 12U);
  EXPECT_EQ(command->GetStepId(), "the step");
  EXPECT_EQ(command->GetCommandArgs(), nullptr);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpCommandProcessorBackEndCommands, AreOfTheirOwnTypeAndOutliveTheBackEnd) {
  auto list = listOf({"a name"});
  list.mutable_messages(0)->mutable_commandargs()->mutable_prototype()->mutable_data();
  list.mutable_messages(0)->mutable_commandargs()->mutable_data();
  const auto command = pushed(list);
  backEnd_.reset();
  EXPECT_NE(std::dynamic_pointer_cast<const TcpCommandProcessorBackEnd::TcpCommandMessage>(command), nullptr);
  EXPECT_EQ(command->GetCommandName(), "a name");
  EXPECT_EQ(&command->GetTime(), &command->GetTime());
  EXPECT_EQ(&command->GetCommandName(), &command->GetCommandName());
  EXPECT_NE(command->GetCommandArgs(), nullptr);
  EXPECT_EQ(command->GetCommandArgs(), command->GetCommandArgs());
}

TEST_F(TcpCommandProcessorBackEndCommands, HaveTheMembersOfTheirEditRateExchanged) {
  const auto command = pushed(listOf({"at 25/1"}));
  EXPECT_EQ(command->GetTime().GetEditRate().GetNumerator(), 1U);
  EXPECT_EQ(command->GetTime().GetEditRate().GetDenominator(), 25U);
  EXPECT_EQ(command->GetTime().GetTimeNumber(), 3);
}

TEST_F(TcpCommandProcessorBackEndCommands, HaveTheLowerHalfOfTheirIds) {
  constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
  constexpr std::uint64_t above = std::uint64_t{1} << 32U;
  auto list = listOf({"1", "2", "3", "4"});
  const std::uint64_t commandIds[] = {above, above + 9, most, above - 1};
  const std::uint64_t engineIds[] = {above + 7, above, above - 1, most - 1};
  for (int i = 0; i < 4; ++i) {
    list.mutable_messages(i)->set_commandid(commandIds[i]);
    list.mutable_messages(i)->set_engineid(engineIds[i]);
  }
  deliver(list);
  std::vector<std::pair<unsigned int, unsigned int>> ids;
  for (const auto& command : arrived(4)) ids.emplace_back(command->GetCommandId(), command->GetEngineId());
  EXPECT_THAT(ids, ElementsAre(Pair(0, 7), Pair(9, 0), Pair(4'294'967'295, 4'294'967'295),
                               Pair(4'294'967'295, 4'294'967'294)));
}

TEST_F(TcpCommandProcessorBackEndCommands, HaveTextsByteForByteAndTimesToTheirLimits) {
  using namespace std::string_literals;
  constexpr auto most = std::numeric_limits<std::uint32_t>::max();
  auto list = listOf({"\0name\r\n"s});
  auto& message = *list.mutable_messages(0);
  message.set_workflowmanagerid("manager\0 \xc3\xa4"s);
  message.set_stepid("");
  message.mutable_mediatime()->mutable_editrate()->set_numerator(0);
  message.mutable_mediatime()->mutable_editrate()->set_denominator(most);
  message.mutable_mediatime()->set_timenumber(std::numeric_limits<std::int64_t>::min());
  const auto command = pushed(list);
  EXPECT_EQ(command->GetCommandName(), "\0name\r\n"s);
  EXPECT_EQ(command->GetWorkflowManagerId(), "manager\0 \xc3\xa4"s);
  EXPECT_EQ(command->GetStepId(), "");
  EXPECT_EQ(command->GetTime().GetEditRate(), tamb::EditRate(most, 0));
  EXPECT_EQ(command->GetTime().GetTimeNumber(), std::numeric_limits<std::int64_t>::min());
}

TEST_F(TcpCommandProcessorBackEndCommands, ComeOneByOneInTheOrderOfTheirListsAndOnOneThread) {
  backEnd_.reset();
  std::atomic<pid_t> thread = 0;
  std::atomic<int> otherThreads = 0;
  processor_->onPush = [&](const tamb::ICommandMessage&) {
    const pid_t before = thread.exchange(::gettid());
    if (before != 0 && before != ::gettid()) ++otherThreads;
  };
  construct();
  deliver({"1", "2", "3"});
  deliver({"4"});
  deliver({"5", "6"});
  EXPECT_THAT(arrivedNames(6), ElementsAre("1", "2", "3", "4", "5", "6"));
  backEnd_.reset();  // the last push may still be under way
  EXPECT_NE(thread, ::gettid());
  EXPECT_EQ(otherThreads, 0);
}

TEST_F(TcpCommandProcessorBackEndCommands, ComeFromAPublisherAtTheEndpointThereAlreadyOrNot) {
  for (const bool isThereAlready : {false, true}) {
    backEnd_.reset();
    processor_ = std::make_shared<OneByOne>();
    socket::Socket publisher("Publisher", socket::ClosePolicy::Patient);
    if (!isThereAlready) construct();
    publisher.createAndConnect(socket::Protocol::Publisher, endpoint(), 0);
    auto list = listOf({"1", "2"});
    publisher.sendProtoBuf(&list);
    if (isThereAlready) construct();
    list = listOf({"3"});
    publisher.sendProtoBuf(&list);
    EXPECT_THAT(arrivedNames(3), ElementsAre("1", "2", "3"));
  }
}

TEST_F(TcpCommandProcessorBackEndCommands, AreNotCheckedForWhomTheyAre) {
  auto list = listOf({"1", "2"});
  list.mutable_messages(1)->set_workflowmanagerid("another manager");
  list.mutable_messages(1)->set_engineid(8);
  processor_->SetWorkflowManagerId("manager-17");
  processor_->SetEngineId(7);
  deliver(list);
  EXPECT_THAT(arrivedNames(2), ElementsAre("1", "2"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpCommandProcessorBackEndCommands, AreNoneInAnEmptyList) {
  deliver(std::vector<std::string>());
  ASSERT_TRUE(waitUntilIdle());
  EXPECT_THAT(processor_->commands.all(), IsEmpty());
  deliver({"after"});
  EXPECT_THAT(arrivedNames(1), ElementsAre("after"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpCommandProcessorBackEndCommands, ArePushedOnceEachAlthoughPollsTimeOutBehindThem) {
  deliver({"1", "2"});
  arrived(2);
  ASSERT_TRUE(waitUntilIdle());
  // The poll under way times out, and the next one ends reception.
  socket::inproc::failNext(socketName, Operation::Poll, Failure::ErrorResult, "the poll is broken");
  ASSERT_TRUE(log_.waitFor("the poll is broken"));
  ASSERT_TRUE(waitUntilGone(log_.records().back().threadId));
  EXPECT_THAT(arrivedNames(2), ElementsAre("1", "2"));
}

TEST_F(TcpCommandProcessorBackEndCommands, SkipMessagesThatCannotBeReadWithOneLineOfTheSocketEach) {
  const auto expectSkipped = [&](const std::string& bytes, const std::string& reason) {
    const auto before = log_.records().size();
    socket::inproc::deliver(socketName, bytes);
    ASSERT_TRUE(waitUntilIdle());
    const auto records = log_.records();
    ASSERT_EQ(records.size(), before + 1) << reason;
    EXPECT_THAT(records.back().message, AllOf(HasSubstr(socketLabel), HasSubstr(reason)));
    EXPECT_EQ(records.back().level, tamb::LogLevel::Error);
  };
  deliver({"before"});
  expectSkipped("\xff\xff nonsense", "cannot be parsed");
  auto incomplete = listOf({"complete", "incomplete"});
  incomplete.mutable_messages(1)->clear_stepid();
  expectSkipped(incomplete.SerializePartialAsString(), "lack messages[1].stepId");
  expectSkipped(listOf({std::string(65'536, 'x')}).SerializeAsString(), "the limit is 65536 bytes");
  deliver({"after"});
  EXPECT_THAT(arrivedNames(2), ElementsAre("before", "after"));
}

TEST_F(TcpCommandProcessorBackEndCommands, MayTogetherBeAsLargeAsAMessageMayBe) {
  auto list = listOf({std::string(65'536, 'x'), "small"});
  list.mutable_messages(0)->set_stepid("a step");
  auto& name = *list.mutable_messages(0)->mutable_commandname();
  while (list.ByteSizeLong() > 65'536) name.pop_back();
  ASSERT_EQ(list.ByteSizeLong(), 65'536U);
  const std::size_t size = name.size();
  deliver(list);
  EXPECT_EQ(arrived(2).front()->GetCommandName().size(), size);
  name.push_back('x');
  deliver(list);
  EXPECT_TRUE(log_.waitFor("65537 bytes, the limit is 65536 bytes"));
}

/// The arguments of commands.
class TcpCommandProcessorBackEndArguments : public CommandBackEndTest {
 protected:
  void SetUp() override { construct(); }

  static proto::ParametersCollectionCommon& defaults(proto::CommandMessage& message) {
    return *message.mutable_commandargs()->mutable_prototype()->mutable_data();
  }
  static proto::ParametersCollectionCommon& values(proto::CommandMessage& message) {
    return *message.mutable_commandargs()->mutable_data();
  }
  template <class KeyValue, class Value>
  static void set(KeyValue* parameter, const std::string& key, const Value& value) {
    parameter->set_key(key);
    parameter->set_value(value);
  }
  /// Arguments that can be rebuilt.
  static void addGoodArguments(proto::CommandMessage& message) {
    set(defaults(message).add_int64params(), "number", 1);
    set(values(message).add_int64params(), "number", 2);
  }

  /// Checks that a command arrives without its arguments, between two that keep theirs, after one line that
  /// says what the framework says.
  template <class Spoil, class Refused>
  void expectArgumentsLost(const Spoil& spoil, const Refused& refusedByTheFramework) {
    std::string reason = "the framework refuses nothing";
    try {
      refusedByTheFramework();
    } catch (const std::runtime_error& error) {
      reason = error.what();
    }
    auto list = listOf({"1", "2", "3"});
    for (auto& message : *list.mutable_messages()) addGoodArguments(message);
    spoil(*list.mutable_messages(1));
    deliver(list);
    const auto commands = arrived(3);
    for (const std::size_t good : {0U, 2U}) {
      ASSERT_NE(commands[good]->GetCommandArgs(), nullptr);
      EXPECT_EQ(commands[good]->GetCommandArgs()->GetInt64("number"), 2);
    }
    EXPECT_EQ(commands[1]->GetCommandArgs(), nullptr);
    EXPECT_EQ(commands[1]->GetCommandName(), "2");
    EXPECT_EQ(commands[1]->GetCommandId(), 5U);
    EXPECT_EQ(commands[1]->GetStepId(), "step of 2");
    EXPECT_EQ(commands[1]->GetTime().GetTimeNumber(), 3);
    const auto records = log_.records();
    ASSERT_EQ(records.size(), 1U);
    expectRecord(records[0], "Command: failed serializing parameters collection: " + reason, 249);
    deliver({"4"});
    EXPECT_EQ(arrived(4).back()->GetCommandName(), "4");
  }
};

TEST_F(TcpCommandProcessorBackEndArguments, AreRebuiltWithTheirTypesDefaultsAndValues) {
  auto list = listOf({"a name"});
  auto& message = *list.mutable_messages(0);
  set(defaults(message).add_utf8stringparams(), "text", "default text");
  set(defaults(message).add_doubleparams(), "real", -0.5);
  set(defaults(message).add_uint64params(), "unsigned", 1U);
  set(defaults(message).add_int64params(), "signed", -1);
  set(defaults(message).add_boolparams(), "flag", false);
  set(defaults(message).add_boolparams(), "not set", true);
  set(values(message).add_utf8stringparams(), "text", "a text");
  set(values(message).add_doubleparams(), "real", 1e300);
  set(values(message).add_uint64params(), "unsigned", std::numeric_limits<std::uint64_t>::max());
  set(values(message).add_int64params(), "signed", std::numeric_limits<std::int64_t>::min());
  set(values(message).add_boolparams(), "flag", true);
  deliver(list);
  const auto arguments = arrived(1).front()->GetCommandArgs();
  ASSERT_NE(arguments, nullptr);
  EXPECT_EQ(arguments->GetUTF8String("text"), "a text");
  EXPECT_EQ(arguments->GetDouble("real"), 1e300);
  EXPECT_EQ(arguments->GetUint64("unsigned"), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(arguments->GetInt64("signed"), std::numeric_limits<std::int64_t>::min());
  EXPECT_TRUE(arguments->GetBool("flag"));
  EXPECT_TRUE(arguments->GetBool("not set"));
  EXPECT_EQ(arguments->GetKeysAndTypes().size(), 6U);
  EXPECT_EQ(arguments->GetPrototype()->GetUTF8StringDefault("text"), "default text");
  EXPECT_EQ(arguments->GetPrototype()->GetInt64Default("signed"), -1);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpCommandProcessorBackEndArguments, AreThereWithoutKeysWhenTheyWereSentWithoutKeys) {
  auto list = listOf({"without arguments", "without keys"});
  defaults(*list.mutable_messages(1));
  values(*list.mutable_messages(1));
  deliver(list);
  const auto commands = arrived(2);
  EXPECT_EQ(commands[0]->GetCommandArgs(), nullptr);
  ASSERT_NE(commands[1]->GetCommandArgs(), nullptr);
  EXPECT_THAT(commands[1]->GetCommandArgs()->GetKeysAndTypes(), IsEmpty());
}

TEST_F(TcpCommandProcessorBackEndArguments, AreLostAloneWhenAKeyOccursTwice) {
  expectArgumentsLost(
      [](proto::CommandMessage& message) { set(defaults(message).add_boolparams(), "number", true); },
      [] {
        const auto prototype = tamb::CreateParametersCollectionPrototype();
        prototype->AddBoolKey("number", true, "");
        prototype->AddInt64Key("number", 1, "");
      });
}

TEST_F(TcpCommandProcessorBackEndArguments, AreLostAloneWhenAValueHasNoKey) {
  expectArgumentsLost(
      [](proto::CommandMessage& message) { set(values(message).add_boolparams(), "unknown", true); },
      [] {
        tamb::CreateParametersCollectionInstance(tamb::CreateParametersCollectionPrototype())
            ->SetBool("unknown", true);
      });
}

TEST_F(TcpCommandProcessorBackEndArguments, AreLostAloneWhenAValueHasAnotherTypeThanItsKey) {
  expectArgumentsLost(
      [](proto::CommandMessage& message) { set(values(message).add_doubleparams(), "number", 2.5); },
      [] {
        const auto prototype = tamb::CreateParametersCollectionPrototype();
        prototype->AddInt64Key("number", 1, "");
        tamb::CreateParametersCollectionInstance(prototype)->SetDouble("number", 2.5);
      });
}

TEST_F(TcpCommandProcessorBackEndArguments, AreLostWithOneLineForEachCommand) {
  auto list = listOf({"1", "2"});
  for (auto& message : *list.mutable_messages()) {
    defaults(message);
    set(values(message).add_boolparams(), "unknown", true);
  }
  deliver(list);
  arrived(2);
  const auto records = log_.records();
  ASSERT_EQ(records.size(), 2U);
  for (const auto& record : records) EXPECT_EQ(record.line, "249");
}

TEST_F(TcpCommandProcessorBackEndArguments, LeaveTextsOfSixteenBitUnitsOut) {
  auto list = listOf({"a name"});
  addGoodArguments(*list.mutable_messages(0));
  set(defaults(*list.mutable_messages(0)).add_utf16stringparams(), "wide", "default");
  set(values(*list.mutable_messages(0)).add_utf16stringparams(), "wide", "value");
  deliver(list);
  const auto arguments = arrived(1).front()->GetCommandArgs();
  ASSERT_NE(arguments, nullptr);
  EXPECT_THAT(arguments->GetKeysAndTypes(), ElementsAre(Pair("number", tamb::TambType::Int64)));
  EXPECT_THAT(log_.records(), IsEmpty());
}

}  // namespace
}  // namespace qor::multiprocess_communication
