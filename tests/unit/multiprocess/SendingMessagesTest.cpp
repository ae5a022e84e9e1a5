#include <cstdint>
#include <limits>

#include "tests/unit/multiprocess/CommandSending.h"
#include "tests/unit/multiprocess/NotificationSending.h"

namespace qor::multiprocess_communication {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class SomeClock : public tamb::IClockInfo {
 public:
  std::string GetClockName() const override { return "some clock"; }
};

/// What both channels send alike.
template <class Channel>
class SentMessages : public SendingTest<Channel> {
 protected:
  void SetUp() override {
    this->open();
    this->listen();
  }
};

using Channels = testing::Types<CommandSending, NotificationSending>;
TYPED_TEST_SUITE(SentMessages, Channels);

TYPED_TEST(SentMessages, HoldIdsExtendedWithZerosAndNotWithTheirSigns) {
  this->open(4'294'967'295);
  auto its = this->fields();
  its.commandId = 2'147'483'648;
  its.engineId = 4'294'967'295;
  this->push({this->itemWith(its)});
  const auto message = this->only();
  EXPECT_EQ(message.commandid(), std::uint64_t{2'147'483'648});
  EXPECT_EQ(message.engineid(), std::uint64_t{4'294'967'295});
}

TYPED_TEST(SentMessages, HoldTimesToTheirLimits) {
  constexpr auto most = std::numeric_limits<std::uint32_t>::max();
  for (const auto timeNumber :
       {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
    auto its = this->fields();
    its.time = tamb::MediaTime(tamb::EditRate(most, most - 1), timeNumber, nullptr);
    this->push({this->itemWith(its)});
    const auto message = this->only();
    EXPECT_EQ(TypeParam::time(message).editrate().numerator(), most);
    EXPECT_EQ(TypeParam::time(message).editrate().denominator(), most - 1);
    EXPECT_EQ(TypeParam::time(message).timenumber(), timeNumber);
  }
}

TYPED_TEST(SentMessages, AreTheSameWithAndWithoutTheClockOfATime) {
  auto its = this->fields();
  this->push({this->itemWith(its)});
  its.time = tamb::MediaTime(its.time.GetEditRate(), its.time.GetTimeNumber(), std::make_shared<SomeClock>());
  this->push({this->itemWith(its)});
  EXPECT_EQ(this->next().SerializeAsString(), this->next().SerializeAsString());
}

TYPED_TEST(SentMessages, HoldTextsByteForByte) {
  using namespace std::string_literals;
  this->open(7, "manager\0 \xc3\xa4"s);
  auto its = this->fields();
  its.workflowManagerId = "manager\0 \xc3\xa4"s;
  TypeParam::name(its) = "\0name\r\n"s;
  its.stepId = "step\0"s;
  this->push({this->itemWith(its)});
  const auto message = this->only();
  EXPECT_EQ(message.workflowmanagerid(), "manager\0 \xc3\xa4"s);
  EXPECT_EQ(TypeParam::name(message), "\0name\r\n"s);
  EXPECT_EQ(TypeParam::step(message), "step\0"s);
}

void expectData(const proto::ParametersCollectionCommon& data, bool flag, std::int64_t number,
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
}

TYPED_TEST(SentMessages, HoldParametersOfTheFiveTypesWithTheirDefaults) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey("text", "default text", "described");
  prototype->AddDoubleKey("real", -0.5, "");
  prototype->AddUint64Key("unsigned", 1, "");
  prototype->AddInt64Key("signed", -1, "");
  prototype->AddBoolKey("flag", false, "");
  const auto parameters = tamb::CreateParametersCollectionInstance(prototype);
  parameters->SetUTF8String("text", "K\xC3\xA4the");
  parameters->SetDouble("real", 1e300);
  parameters->SetUint64("unsigned", std::numeric_limits<std::uint64_t>::max());
  parameters->SetInt64("signed", std::numeric_limits<std::int64_t>::min());
  parameters->SetBool("flag", true);
  this->push({this->itemWith(parameters)});

  const auto message = this->only();
  expectData(TypeParam::parameters(message).prototype().data(), false, -1, 1, -0.5, "default text");
  expectData(TypeParam::parameters(message).data(), true, std::numeric_limits<std::int64_t>::min(),
             std::numeric_limits<std::uint64_t>::max(), 1e300, "K\xC3\xA4the");
}

TYPED_TEST(SentMessages, TellNoParametersFromParametersWithoutKeys) {
  this->push({this->item(), this->itemWith(this->emptyParameters()), this->item()});
  const auto list = this->next();
  ASSERT_EQ(list.messages_size(), 3);
  EXPECT_FALSE(TypeParam::hasParameters(list.messages(0)));
  ASSERT_TRUE(TypeParam::hasParameters(list.messages(1)));
  EXPECT_TRUE(TypeParam::parameters(list.messages(1)).prototype().has_data());
  EXPECT_TRUE(TypeParam::parameters(list.messages(1)).has_data());
  EXPECT_EQ(TypeParam::parameters(list.messages(1)).data().ByteSizeLong(), 0U);
  EXPECT_FALSE(TypeParam::hasParameters(list.messages(2)));
}

TYPED_TEST(SentMessages, HoldOneBatchEachInItsOrder) {
  const auto twice = this->item("twice");
  this->push({this->item("first"), twice, this->item("second"), twice});
  this->push({this->item("third")});
  EXPECT_THAT(this->nextNames(), ElementsAre("first", "twice", "second", "twice"));
  EXPECT_THAT(this->nextNames(), ElementsAre("third"));
  EXPECT_TRUE(this->nothingWasSent());
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

TYPED_TEST(SentMessages, AreSentForEmptyBatchesToo) {
  this->push({});
  EXPECT_EQ(this->next().SerializeAsString(), "");
  EXPECT_TRUE(this->nothingWasSent());
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

TYPED_TEST(SentMessages, OfASingleItemAreThoseOfABatchOfOne) {
  const auto single = this->item("single");
  this->push({single});
  this->pushOne(single);
  const auto ofTheBatch = this->next();
  EXPECT_EQ(this->next().SerializeAsString(), ofTheBatch.SerializeAsString());
  EXPECT_EQ(ofTheBatch.messages_size(), 1);
  EXPECT_TRUE(this->nothingWasSent());
}

TYPED_TEST(SentMessages, HoldNothingOfTheBatchesBefore) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey("text", std::string(1'000, 'x'), "");
  const auto large = this->itemWith(tamb::CreateParametersCollectionInstance(prototype));
  const auto tooLarge = this->itemOfListSize(65'537);
  this->push({this->item("lonely")});
  const std::string alone = this->next().SerializeAsString();
  this->push({large, large, large});
  this->next();
  this->push({this->item("lonely")});
  EXPECT_EQ(this->next().SerializeAsString(), alone);
  // Refused in its second item, and refused by the socket.
  EXPECT_ANY_THROW(this->push({large, nullptr}));
  this->push({this->item("lonely")});
  EXPECT_EQ(this->next().SerializeAsString(), alone);
  EXPECT_ANY_THROW(this->push({large, tooLarge}));
  this->push({this->item("lonely")});
  EXPECT_EQ(this->next().SerializeAsString(), alone);
  EXPECT_TRUE(this->nothingWasSent());
}

TYPED_TEST(SentMessages, AreKeptForTheFirstSubscriberCompleteAndInOrder) {
  this->listener_.close();
  for (int i = 0; i < 1'000; ++i) {
    this->push({this->item("first of " + std::to_string(i)), this->item("second of " + std::to_string(i))});
  }
  this->push({});
  EXPECT_EQ(socket::inproc::sockets().front().unsent, 1'001U);
  this->listen();
  for (int i = 0; i < 1'000; ++i) {
    ASSERT_THAT(this->nextNames(),
                ElementsAre("first of " + std::to_string(i), "second of " + std::to_string(i)));
  }
  EXPECT_THAT(this->nextNames(), IsEmpty());
  EXPECT_TRUE(this->nothingWasSent());
}

TYPED_TEST(SentMessages, ReachEverySubscriber) {
  socket::Socket second("SecondListener", socket::ClosePolicy::Newest);
  second.createAndConnect(socket::Protocol::Subscriber, this->endpoint(), 0);
  this->push({this->item("for both")});
  EXPECT_THAT(this->nextNames(), ElementsAre("for both"));
  typename TypeParam::List list;
  ASSERT_EQ(second.receiveProtoBuf(&list, 65'536), 0);
  EXPECT_EQ(TypeParam::name(list.messages(0)), "for both");
}

/// The sender itself, and its socket.
template <class Channel>
class SenderLife : public SendingTest<Channel> {};
TYPED_TEST_SUITE(SenderLife, Channels);

TYPED_TEST(SenderLife, PublishesAtItsEndpoint) {
  this->open();
  const auto sockets = socket::inproc::sockets();
  ASSERT_EQ(sockets.size(), 1U);
  EXPECT_EQ(sockets.front().name, TypeParam::socketName);
  EXPECT_EQ(sockets.front().protocol, socket::Protocol::Publisher);
  EXPECT_EQ(sockets.front().endpoint, TypeParam::address);
  EXPECT_TRUE(sockets.front().isOpen);
  EXPECT_EQ(this->sender_->messageHeader(), TypeParam::header);
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

TYPED_TEST(SenderLife, PushesASingleItemThroughTheVirtualBatch) {
  typename TypeParam::Intercepting sender(this->endpoint());
  const auto single = this->item();
  TypeParam::pushOne(sender, single);
  TypeParam::pushOne(sender, nullptr);
  EXPECT_THAT(sender.batches, ElementsAre(ElementsAre(single), ElementsAre(nullptr)));
  this->listen();
  EXPECT_TRUE(this->nothingWasSent());
}

TYPED_TEST(SenderLife, GivesWhatNobodyHasTakenTwoSecondsAtItsEnd) {
  this->open();
  this->push({this->item()});
  this->push({this->item()});
  this->sender_.reset();
  ASSERT_EQ(this->log_.records().size(), 1U);
  EXPECT_THAT(this->log_.records().front().message,
              testing::AllOf(HasSubstr(TypeParam::socketName),
                             HasSubstr("closed with 2 messages still unsent after 2000 ms")));
}

TYPED_TEST(SenderLife, FreesItsEndpointForTheNextOne) {
  this->listen();
  this->open();
  this->push({this->item("first")});
  this->sender_.reset();
  EXPECT_THAT(this->openSockets(), ElementsAre("Listener"));
  this->open();
  this->push({this->item("second")});
  EXPECT_THAT(this->log_.records(), IsEmpty());
  EXPECT_THAT(this->nextNames(), ElementsAre("first"));
  EXPECT_THAT(this->nextNames(), ElementsAre("second"));
}

}  // namespace
}  // namespace qor::multiprocess_communication
