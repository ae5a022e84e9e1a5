#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <limits>

#include "tamb/IParametersCollection.h"
#include "tests/unit/multiprocess/CommandReceiving.h"
#include "tests/unit/multiprocess/NotificationReceiving.h"

namespace qor::multiprocess_communication {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

/// What both channels deliver alike.
template <class Channel>
class ReceivedItems : public ReceivingTest<Channel> {
 protected:
  void SetUp() override { this->open(); }
};

using Channels = testing::Types<CommandReceiving, NotificationReceiving>;
TYPED_TEST_SUITE(ReceivedItems, Channels);

TYPED_TEST(ReceivedItems, HaveTheMembersOfTheirEditRateExchanged) {
  const auto item = this->received(this->wire("at 25/1"));
  EXPECT_EQ(item->GetTime().GetEditRate().GetNumerator(), 1U);
  EXPECT_EQ(item->GetTime().GetEditRate().GetDenominator(), 25U);
  EXPECT_EQ(item->GetTime().GetTimeNumber(), 3);
  EXPECT_EQ(item->GetTime().GetClockInfo(), nullptr);
}

TYPED_TEST(ReceivedItems, HaveTheLowerHalfOfTheirIds) {
  constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
  constexpr std::uint64_t above = std::uint64_t{1} << 32U;
  auto list = this->listOf(std::vector<std::string>{"1", "2", "3", "4"});
  const std::uint64_t commandIds[] = {above, above + 9, most, above - 1};
  const std::uint64_t engineIds[] = {above + 7, above, above - 1, most - 1};
  for (int i = 0; i < 4; ++i) {
    list.mutable_messages(i)->set_commandid(commandIds[i]);
    list.mutable_messages(i)->set_engineid(engineIds[i]);
  }
  this->deliver(list);
  ASSERT_TRUE(this->allIsHandled());
  std::vector<std::pair<unsigned int, unsigned int>> ids;
  for (const auto& item : this->arrived()) ids.emplace_back(item->GetCommandId(), item->GetEngineId());
  EXPECT_THAT(ids, ElementsAre(Pair(0, 7), Pair(9, 0), Pair(4'294'967'295, 4'294'967'295),
                               Pair(4'294'967'295, 4'294'967'294)));
}

TYPED_TEST(ReceivedItems, HaveTextsByteForByteAndTimesToTheirLimits) {
  using namespace std::string_literals;
  constexpr auto most = std::numeric_limits<std::uint32_t>::max();
  auto sent = this->wire("\0name\r\n"s);
  sent.set_workflowmanagerid("manager\0 \xc3\xa4"s);
  TypeParam::step(sent, "");
  TypeParam::mutableTime(sent).mutable_editrate()->set_numerator(0);
  TypeParam::mutableTime(sent).mutable_editrate()->set_denominator(most);
  TypeParam::mutableTime(sent).set_timenumber(std::numeric_limits<std::int64_t>::min());
  const auto item = this->received(sent);
  EXPECT_EQ(TypeParam::name(*item), "\0name\r\n"s);
  EXPECT_EQ(item->GetWorkflowManagerId(), "manager\0 \xc3\xa4"s);
  EXPECT_EQ(item->GetStepId(), "");
  EXPECT_EQ(item->GetTime().GetEditRate(), tamb::EditRate(most, 0));
  EXPECT_EQ(item->GetTime().GetTimeNumber(), std::numeric_limits<std::int64_t>::min());
}

TYPED_TEST(ReceivedItems, OutliveTheReceiver) {
  auto sent = this->wire();
  TypeParam::mutableParameters(sent).mutable_prototype()->mutable_data();
  TypeParam::mutableParameters(sent).mutable_data();
  const auto item = this->received(sent);
  this->receiver_.reset();
  EXPECT_EQ(TypeParam::name(*item), "a name");
  EXPECT_EQ(&item->GetTime(), &item->GetTime());
  EXPECT_EQ(&TypeParam::name(*item), &TypeParam::name(*item));
  EXPECT_NE(TypeParam::parameters(*item), nullptr);
  EXPECT_EQ(TypeParam::parameters(*item), TypeParam::parameters(*item));
}

TYPED_TEST(ReceivedItems, ComeOneByOneInTheOrderOfTheirListsAndOnOneThread) {
  this->receiver_.reset();
  std::atomic<pid_t> thread = 0;
  std::atomic<int> otherThreads = 0;
  TypeParam::onPush(this->local_) = [&](const auto&) {
    const pid_t before = thread.exchange(::gettid());
    if (before != 0 && before != ::gettid()) ++otherThreads;
  };
  this->open();
  this->deliverNames({"1", "2", "3"});
  this->deliverNames({"4"});
  this->deliverNames({"5", "6"});
  EXPECT_THAT(this->arrivedNames(), ElementsAre("1", "2", "3", "4", "5", "6"));
  this->receiver_.reset();
  EXPECT_NE(thread, ::gettid());
  EXPECT_EQ(otherThreads, 0);
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

TYPED_TEST(ReceivedItems, ComeFromAPublisherAtTheEndpointThereAlreadyOrNot) {
  for (const bool isThereAlready : {false, true}) {
    this->receiver_.reset();
    this->local_ = {};
    socket::Socket publisher("Publisher", socket::ClosePolicy::Patient);
    if (!isThereAlready) this->open();
    publisher.createAndConnect(socket::Protocol::Publisher, this->endpoint(), 0);
    auto list = this->listOf(std::vector<std::string>{"1", "2"});
    publisher.sendProtoBuf(&list);
    if (isThereAlready) this->open();
    list = this->listOf(std::vector<std::string>{"3"});
    publisher.sendProtoBuf(&list);
    TypeParam::arrivals(this->local_).waitFor(3);
    EXPECT_THAT(this->namesUntilNow(), ElementsAre("1", "2", "3"));
  }
}

TYPED_TEST(ReceivedItems, AreNoneInAnEmptyList) {
  this->deliverBytes("");
  EXPECT_THAT(this->arrivedNames(), IsEmpty());
  this->deliverNames({"after"});
  EXPECT_THAT(this->arrivedNames(), ElementsAre("after"));
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

TYPED_TEST(ReceivedItems, AreDeliveredOnceEachAlthoughPollsTimeOutBehindThem) {
  this->deliverNames({"1", "2"});
  EXPECT_THAT(this->arrivedNames(), ElementsAre("1", "2"));
  // The poll under way times out, and the next one ends reception.
  socket::inproc::failNext(TypeParam::socketName, socket::inproc::Operation::Poll,
                           socket::inproc::Failure::ErrorResult, "the poll is broken");
  ASSERT_TRUE(this->log_.waitFor("the poll is broken"));
  ASSERT_TRUE(this->reporterIsGone());
  EXPECT_THAT(this->namesUntilNow(), ElementsAre("1", "2"));
}

TYPED_TEST(ReceivedItems, SkipMessagesThatCannotBeReadWithOneLineOfTheSocketEach) {
  const auto expectSkipped = [&](const std::string& bytes, const std::string& reason) {
    const auto before = this->log_.records().size();
    this->deliverBytes(bytes);
    ASSERT_TRUE(this->allIsHandled());
    const auto records = this->log_.records();
    ASSERT_EQ(records.size(), before + 1) << reason;
    EXPECT_THAT(records.back().message, AllOf(HasSubstr(std::string(TypeParam::socketName) + " (Subscriber " +
                                                        TypeParam::address + ")"),
                                              HasSubstr(reason)));
    EXPECT_EQ(records.back().level, tamb::LogLevel::Error);
  };
  this->deliverNames({"before"});
  expectSkipped("\xff\xff nonsense", "cannot be parsed");
  auto incomplete = this->listOf(std::vector<std::string>{"complete", "incomplete"});
  expectSkipped(incomplete.SerializeAsString().substr(0, 20), "cannot be parsed");
  incomplete.mutable_messages(1)->clear_engineid();
  expectSkipped(incomplete.SerializePartialAsString(), "lack messages[1].engineId");
  expectSkipped(this->listOf(std::vector{std::string(65'536, 'x')}).SerializeAsString(),
                "the limit is 65536 bytes");
  this->deliverNames({"after"});
  EXPECT_THAT(this->arrivedNames(), ElementsAre("before", "after"));
}

TYPED_TEST(ReceivedItems, MayTogetherBeAsLargeAsAMessageMayBe) {
  std::string name(65'000, 'x');
  auto sent = this->wire();
  TypeParam::name(sent, name);
  name.resize(name.size() + 65'536 - this->listOf(std::vector{sent}).ByteSizeLong(), 'x');
  TypeParam::name(sent, name);
  ASSERT_EQ(this->listOf(std::vector{sent}).ByteSizeLong(), 65'536U);
  EXPECT_EQ(TypeParam::name(*this->received(sent)), name);
  TypeParam::name(sent, name + "x");
  this->deliver(std::vector{sent});
  EXPECT_TRUE(this->log_.waitFor("65537 bytes, the limit is 65536 bytes"));
}

/// The parameters of what both channels deliver.
template <class Channel>
class ReceivedParameters : public ReceivedItems<Channel> {
 protected:
  using Wire = typename Channel::Wire;

  static proto::ParametersCollectionCommon& defaults(Wire& wire) {
    return *Channel::mutableParameters(wire).mutable_prototype()->mutable_data();
  }
  static proto::ParametersCollectionCommon& values(Wire& wire) {
    return *Channel::mutableParameters(wire).mutable_data();
  }
  template <class KeyValue, class Value>
  static void set(KeyValue* parameter, const std::string& key, const Value& value) {
    parameter->set_key(key);
    parameter->set_value(value);
  }
  /// One whose parameters can be rebuilt.
  static Wire good(const std::string& name) {
    auto wire = ReceivedParameters::wire(name);
    set(defaults(wire).add_int64params(), "number", 1);
    set(values(wire).add_int64params(), "number", 2);
    return wire;
  }

  /// Checks that an item arrives without its parameters, between two that keep theirs, after one line that
  /// says what the framework says.
  void expectLostAlone(const std::function<void(Wire&)>& spoil,
                       const std::function<void()>& refusedByTheFramework) {
    std::string reason = "the framework refuses nothing";
    try {
      refusedByTheFramework();
    } catch (const std::runtime_error& error) {
      reason = error.what();
    }
    auto spoilt = good("2");
    spoil(spoilt);
    this->deliver(std::vector{good("1"), spoilt, good("3")});
    EXPECT_THAT(this->arrivedNames(), ElementsAre("1", "2", "3"));
    const auto items = this->arrived();
    for (const std::size_t kept : {0U, 2U}) {
      ASSERT_NE(Channel::parameters(*items.at(kept)), nullptr);
      EXPECT_EQ(Channel::parameters(*items.at(kept))->GetInt64("number"), 2);
    }
    EXPECT_EQ(Channel::parameters(*items.at(1)), nullptr);
    EXPECT_EQ(items.at(1)->GetCommandId(), 5U);
    EXPECT_EQ(items.at(1)->GetStepId(), "step of 2");
    EXPECT_EQ(items.at(1)->GetTime().GetTimeNumber(), 3);
    ASSERT_EQ(this->log_.records().size(), 1U);
    this->expectRecord(this->log_.records().front(), Channel::lostParameters, reason);
  }
};
TYPED_TEST_SUITE(ReceivedParameters, Channels);

TYPED_TEST(ReceivedParameters, AreRebuiltWithTheirTypesDefaultsAndValues) {
  auto sent = this->wire();
  this->set(this->defaults(sent).add_utf8stringparams(), "text", "default text");
  this->set(this->defaults(sent).add_doubleparams(), "real", -0.5);
  this->set(this->defaults(sent).add_uint64params(), "unsigned", 1U);
  this->set(this->defaults(sent).add_int64params(), "signed", -1);
  this->set(this->defaults(sent).add_boolparams(), "flag", false);
  this->set(this->defaults(sent).add_boolparams(), "not set", true);
  this->set(this->values(sent).add_utf8stringparams(), "text", "K\xC3\xA4the");
  this->set(this->values(sent).add_doubleparams(), "real", 1e300);
  this->set(this->values(sent).add_uint64params(), "unsigned", std::numeric_limits<std::uint64_t>::max());
  this->set(this->values(sent).add_int64params(), "signed", std::numeric_limits<std::int64_t>::min());
  this->set(this->values(sent).add_boolparams(), "flag", true);
  const auto parameters = TypeParam::parameters(*this->received(sent));
  ASSERT_NE(parameters, nullptr);
  EXPECT_EQ(parameters->GetUTF8String("text"), "K\xC3\xA4the");
  EXPECT_EQ(parameters->GetDouble("real"), 1e300);
  EXPECT_EQ(parameters->GetUint64("unsigned"), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(parameters->GetInt64("signed"), std::numeric_limits<std::int64_t>::min());
  EXPECT_TRUE(parameters->GetBool("flag"));
  EXPECT_TRUE(parameters->GetBool("not set"));
  EXPECT_EQ(parameters->GetKeysAndTypes().size(), 6U);
  EXPECT_EQ(parameters->GetPrototype()->GetUTF8StringDefault("text"), "default text");
  EXPECT_EQ(parameters->GetPrototype()->GetInt64Default("signed"), -1);
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

TYPED_TEST(ReceivedParameters, AreThereWithoutKeysWhenTheyWereSentWithoutKeys) {
  EXPECT_EQ(TypeParam::parameters(*this->received(this->wire())), nullptr);
  auto sent = this->wire();
  this->defaults(sent);
  this->values(sent);
  const auto parameters = TypeParam::parameters(*this->received(sent));
  ASSERT_NE(parameters, nullptr);
  EXPECT_THAT(parameters->GetKeysAndTypes(), IsEmpty());
}

TYPED_TEST(ReceivedParameters, AreLostAloneWhenAKeyOccursTwice) {
  this->expectLostAlone(
      [this](auto& wire) { this->set(this->defaults(wire).add_boolparams(), "number", true); },
      [] {
        const auto prototype = tamb::CreateParametersCollectionPrototype();
        prototype->AddBoolKey("number", true, "");
        prototype->AddInt64Key("number", 1, "");
      });
}

TYPED_TEST(ReceivedParameters, AreLostAloneWhenAValueHasNoKey) {
  this->expectLostAlone([this](auto& wire) { this->set(this->values(wire).add_int64params(), "unknown", 1); },
                        [] {
                          const auto prototype = tamb::CreateParametersCollectionPrototype();
                          prototype->AddInt64Key("number", 1, "");
                          tamb::CreateParametersCollectionInstance(prototype)->SetInt64("unknown", 1);
                        });
}

TYPED_TEST(ReceivedParameters, AreLostAloneWhenAValueHasAnotherTypeThanItsKey) {
  this->expectLostAlone(
      [this](auto& wire) { this->set(this->values(wire).add_doubleparams(), "number", 2.5); },
      [] {
        const auto prototype = tamb::CreateParametersCollectionPrototype();
        prototype->AddInt64Key("number", 1, "");
        tamb::CreateParametersCollectionInstance(prototype)->SetDouble("number", 2.5);
      });
}

TYPED_TEST(ReceivedParameters, AreLostWithOneLineForEachItem) {
  auto list = this->listOf(std::vector<std::string>{"1", "2"});
  for (auto& wire : *list.mutable_messages()) {
    this->defaults(wire);
    this->set(this->values(wire).add_boolparams(), "unknown", true);
  }
  this->deliver(list);
  EXPECT_THAT(this->arrivedNames(), ElementsAre("1", "2"));
  const auto records = this->log_.records();
  ASSERT_EQ(records.size(), 2U);
  for (const auto& record : records) EXPECT_EQ(record.line, std::to_string(TypeParam::lostParameters.line));
}

TYPED_TEST(ReceivedParameters, LeaveTextsOfSixteenBitUnitsOut) {
  auto sent = this->good("a name");
  this->set(this->defaults(sent).add_utf16stringparams(), "wide", "default");
  this->set(this->values(sent).add_utf16stringparams(), "wide", "value");
  const auto parameters = TypeParam::parameters(*this->received(sent));
  ASSERT_NE(parameters, nullptr);
  EXPECT_THAT(parameters->GetKeysAndTypes(), ElementsAre(Pair("number", tamb::TambType::Int64)));
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

}  // namespace
}  // namespace qor::multiprocess_communication
