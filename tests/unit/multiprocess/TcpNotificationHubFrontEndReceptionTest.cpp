#include <csignal>
#include <cstdint>
#include <functional>
#include <limits>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tests/support/CoreFile.h"
#include "tests/unit/multiprocess/NotificationFrontEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// What becomes of a message.
class TcpNotificationHubFrontEndReception : public NotificationFrontEndTest {
 protected:
  void SetUp() override {
    construct();
    start();
  }
};

TEST_F(TcpNotificationHubFrontEndReception, PublishesEveryFieldOfANotification) {
  auto sent = message("the line");
  sent.mutable_time()->set_timenumber(-123'456'789'012);
  sent.set_workflowstep("the step");
  sent.set_commandid(4'711);
  sent.set_workflowmanagerid("the manager");
  sent.set_engineid(12);
  const auto notification = received(sent);
  EXPECT_EQ(notification->GetTime().GetTimeNumber(), -123'456'789'012);
  EXPECT_EQ(notification->GetTime().GetClockInfo(), nullptr);
  EXPECT_EQ(notification->GetStepId(), "the step");
  EXPECT_EQ(notification->GetNotificationLine(), "the line");
  EXPECT_EQ(notification->GetNotificationObject(), nullptr);
  EXPECT_EQ(notification->GetCommandId(), 4'711U);
  EXPECT_EQ(notification->GetWorkflowManagerId(), "the manager");
  EXPECT_EQ(notification->GetEngineId(), 12U);
  EXPECT_FALSE(notification->IsAnError());
  EXPECT_NE(dynamic_cast<const TcpNotificationHubFrontEnd::TcpNotificationMessage*>(notification.get()),
            nullptr);
}

TEST_F(TcpNotificationHubFrontEndReception, KeepsStringsWithZeroBytesAndEmptyOnes) {
  auto sent = message(std::string("a\0b", 3));
  sent.set_workflowstep("");
  sent.set_workflowmanagerid(std::string("\0", 1));
  const auto notification = received(sent);
  EXPECT_EQ(notification->GetNotificationLine(), std::string("a\0b", 3));
  EXPECT_EQ(notification->GetStepId(), "");
  EXPECT_EQ(notification->GetWorkflowManagerId(), std::string("\0", 1));
}

TEST_F(TcpNotificationHubFrontEndReception, ExchangesTheMembersOfTheEditRate) {
  EXPECT_EQ(received(message())->GetTime().GetEditRate(), tamb::EditRate(1, 25));
  auto sent = message();
  sent.mutable_time()->mutable_editrate()->set_numerator(0);
  sent.mutable_time()->mutable_editrate()->set_denominator(4'294'967'295);
  sent.mutable_time()->set_timenumber(std::numeric_limits<std::int64_t>::min());
  const auto time = received(sent)->GetTime();
  EXPECT_EQ(time.GetEditRate(), tamb::EditRate(4'294'967'295, 0));
  EXPECT_EQ(time.GetTimeNumber(), std::numeric_limits<std::int64_t>::min());
}

TEST_F(TcpNotificationHubFrontEndReception, CutsIdsToTheirLow32Bits) {
  auto sent = message();
  sent.set_engineid((std::uint64_t{1} << 32U) + 5);
  sent.set_commandid((std::uint64_t{3} << 32U) + 4'294'967'295);
  const auto notification = received(sent);
  EXPECT_EQ(notification->GetEngineId(), 5U);
  EXPECT_EQ(notification->GetCommandId(), 4'294'967'295U);
  sent.set_engineid(std::numeric_limits<std::uint64_t>::max());
  sent.set_commandid(std::uint64_t{1} << 32U);
  EXPECT_EQ(received(sent)->GetEngineId(), 4'294'967'295U);
  EXPECT_EQ(received(sent)->GetCommandId(), 0U);
}

TEST_F(TcpNotificationHubFrontEndReception, GivesEveryNotificationANewIdAndNeverTheOneThatCame) {
  const auto bytes = encoded(std::vector{message(), message()});
  deliver(bytes);
  deliver(bytes);
  ASSERT_TRUE(allIsHandled());
  std::vector<std::string> ids{"id on the wire"};
  for (const auto& notification : hub_->notifications.all()) {
    EXPECT_THAT(ids, testing::Not(testing::Contains(notification->GetNotificationId())));
    EXPECT_THAT(notification->GetNotificationId(),
                testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}"));
    ids.push_back(notification->GetNotificationId());
  }
  EXPECT_EQ(ids.size(), 5U);
  // The same notification keeps its id.
  EXPECT_EQ(hub_->notifications.all().front()->GetNotificationId(), ids.at(1));
}

TEST_F(TcpNotificationHubFrontEndReception, PublishesAListOneByOneInItsOrder) {
  deliverLines({"one", "two", "three"});
  deliverLines({"four"});
  EXPECT_THAT(pushedLines(), ElementsAre("one", "two", "three", "four"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubFrontEndReception, PublishesNothingForAnEmptyList) {
  deliverLines({"before"});
  deliver("");
  EXPECT_THAT(pushedLines(), ElementsAre("before"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubFrontEndReception, RebuildsAnObjectWithItsFiveTypesAndDefaults) {
  auto sent = message();
  auto& prototype = *sent.mutable_notificationobject()->mutable_prototype()->mutable_data();
  auto& data = *sent.mutable_notificationobject()->mutable_data();
  const auto put = [](auto* parameter, const std::string& key, const auto& value) {
    parameter->set_key(key);
    parameter->set_value(value);
  };
  put(prototype.add_boolparams(), "late", false);
  put(prototype.add_int64params(), "offset", 2);
  put(prototype.add_uint64params(), "frames", 1U);
  put(prototype.add_doubleparams(), "level", 0.5);
  put(prototype.add_utf8stringparams(), "name", "nobody");
  put(prototype.add_utf8stringparams(), "unset", "the default");
  put(prototype.add_utf16stringparams(), "ignored", "x");
  put(data.add_boolparams(), "late", true);
  put(data.add_int64params(), "offset", -9);
  put(data.add_uint64params(), "frames", 18'446'744'073'709'551'615U);
  put(data.add_doubleparams(), "level", -1.25);
  put(data.add_utf8stringparams(), "name", "K\xC3\xA4the");
  put(data.add_utf16stringparams(), "ignored too", "x");
  const auto object = received(sent)->GetNotificationObject();
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->GetKeysAndTypes().size(), 6U);
  EXPECT_TRUE(object->GetBool("late"));
  EXPECT_EQ(object->GetInt64("offset"), -9);
  EXPECT_EQ(object->GetUint64("frames"), 18'446'744'073'709'551'615U);
  EXPECT_EQ(object->GetDouble("level"), -1.25);
  EXPECT_EQ(object->GetUTF8String("name"), "K\xC3\xA4the");
  EXPECT_EQ(object->GetUTF8String("unset"), "the default");
  EXPECT_EQ(object->GetPrototype()->GetInt64Default("offset"), 2);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubFrontEndReception, TellsAnEmptyObjectFromNone) {
  auto sent = message();
  EXPECT_EQ(received(sent)->GetNotificationObject(), nullptr);
  sent.mutable_notificationobject()->mutable_prototype()->mutable_data();
  sent.mutable_notificationobject()->mutable_data();
  const auto notification = received(sent);
  ASSERT_NE(notification->GetNotificationObject(), nullptr);
  EXPECT_THAT(notification->GetNotificationObject()->GetKeysAndTypes(), IsEmpty());
  EXPECT_EQ(notification->GetNotificationObject(), notification->GetNotificationObject());
}

TEST_F(TcpNotificationHubFrontEndReception, PublishesANotificationWithoutItsObjectWhenThatCannotBeRebuilt) {
  const auto withObject = [](const std::string& line) {
    auto sent = message(line);
    sent.mutable_notificationobject()->mutable_data();
    auto* const key =
        sent.mutable_notificationobject()->mutable_prototype()->mutable_data()->add_boolparams();
    key->set_key("late");
    key->set_value(false);
    return sent;
  };
  auto duplicateKey = withObject("duplicate key");
  *duplicateKey.mutable_notificationobject()->mutable_prototype()->mutable_data()->add_boolparams() =
      duplicateKey.notificationobject().prototype().data().boolparams(0);
  auto unknownKey = withObject("unknown key");
  auto* const unknown = unknownKey.mutable_notificationobject()->mutable_data()->add_boolparams();
  unknown->set_key("early");
  unknown->set_value(true);
  auto otherType = withObject("other type");
  auto* const other = otherType.mutable_notificationobject()->mutable_data()->add_int64params();
  other->set_key("late");
  other->set_value(1);
  deliver(
      encoded(std::vector{withObject("before"), duplicateKey, unknownKey, otherType, withObject("behind")}));
  EXPECT_THAT(pushedLines(), ElementsAre("before", "duplicate key", "unknown key", "other type", "behind"));
  const auto all = hub_->notifications.all();
  EXPECT_NE(all.front()->GetNotificationObject(), nullptr);
  EXPECT_EQ(all.at(1)->GetNotificationObject(), nullptr);
  EXPECT_EQ(all.at(2)->GetNotificationObject(), nullptr);
  EXPECT_EQ(all.at(3)->GetNotificationObject(), nullptr);
  EXPECT_NE(all.at(4)->GetNotificationObject(), nullptr);
  const auto records = log_.records();
  ASSERT_EQ(records.size(), 3U);
  for (std::size_t i = 0; i < 3; ++i) {
    expectRecord(records.at(i), records.at(i).message, 288);
    EXPECT_THAT(records.at(i).message,
                testing::StartsWith("TcpNotificationHubFrontEnd: Notification: failed serializing parameters "
                                    "collection: "));
  }
  // The framework's own words.
  EXPECT_THAT(records.at(0).message, HasSubstr("late"));
  EXPECT_THAT(records.at(1).message, HasSubstr("early"));
  EXPECT_THAT(records.at(2).message, HasSubstr("late"));
}

TEST_F(TcpNotificationHubFrontEndReception, DropsTheRestOfAListWhenAPushFailsAndGoesOn) {
  hub_->onPush = [](const tamb::INotificationMessage& notification) {
    if (notification.GetNotificationLine() == "two") throw std::runtime_error("the hub is full");
  };
  deliverLines({"one", "two", "three"});
  deliverLines({"four", "five"});
  EXPECT_THAT(pushedLines(), ElementsAre("one", "two", "four", "five"));
  expectReported("Error in notification reception handler: the hub is full", 306);
}

TEST_F(TcpNotificationHubFrontEndReception, GoesOnAfterEveryListThatFails) {
  hub_->onPush = [](const tamb::INotificationMessage&) { throw tamb::TAMBRuntimeError("closed"); };
  for (int i = 0; i < 5; ++i) deliverLines({"first", "second"});
  EXPECT_THAT(pushedLines(), ElementsAre("first", "first", "first", "first", "first"));
  expectReported("Error in notification reception handler: closed", 306, 2, 5);
}

TEST_F(TcpNotificationHubFrontEndReception, GoesOnAfterAReceiveThatFails) {
  deliverLines({"before"});
  ASSERT_TRUE(allIsHandled());
  socket::inproc::failNext(socketName, Operation::Receive, Failure::RuntimeError, "the wire is cut");
  deliverLines({"behind"});
  EXPECT_THAT(pushedLines(), ElementsAre("before", "behind"));
  expectReported("Error in notification reception handler: the wire is cut", 306);
}

TEST_F(TcpNotificationHubFrontEndReception, SkipsWhatItCannotRead) {
  deliverLines({"before"});
  auto incomplete = message("incomplete");
  incomplete.clear_engineid();
  proto::NotificationMessageList list;
  *list.add_messages() = message("complete");
  *list.add_messages() = incomplete;
  deliver("\xff\xff nonsense");
  deliver(list.SerializePartialAsString());
  deliver(encoded(std::vector<std::string>{"cut off"}).substr(0, 20));
  deliverLines({std::string(70'000, 'x')});
  deliverLines({"behind"});
  EXPECT_THAT(pushedLines(), ElementsAre("before", "behind"));
  EXPECT_EQ(log_.recordsWith("dropped what should be a NotificationMessageList").size(), 4U);
  EXPECT_EQ(log_.records().size(), 4U);
}

TEST_F(TcpNotificationHubFrontEndReception, TakesMessagesOf65536BytesAndNotOneMore) {
  const std::string largest(65'536 - encoded(std::vector{std::string(65'400, 'x')}).size() + 65'400, 'x');
  ASSERT_EQ(encoded(std::vector{largest}).size(), 65'536U);
  deliverLines({largest + "x"});
  EXPECT_THAT(pushedLines(), IsEmpty());
  EXPECT_EQ(log_.recordsWith("65537 bytes, the limit is 65536 bytes").size(), 1U);
  deliverLines({largest});
  EXPECT_THAT(pushedLines(), ElementsAre(largest));
}

/// How reception ends.
class TcpNotificationHubFrontEndReceptionEnd : public NotificationFrontEndTest {
 protected:
  void SetUp() override { construct(); }
  /// Nothing has been received until now, and something is as soon as reception is started again.
  void expectThatItHasEndedAndCanBeStartedAgain() {
    EXPECT_TRUE(threadsFallTo(threadsBefore_));
    deliverLines({"too late"});
    EXPECT_THAT(linesUntilNow(), IsEmpty());
    start();
    deliverLines({"again"});
    EXPECT_THAT(pushedLines(), ElementsAre("again"));
    EXPECT_EQ(log_.records().size(), 1U);
  }
};

TEST_F(TcpNotificationHubFrontEndReceptionEnd, IsAPollErrorWhichIsLoggedAndItCanBeStartedAgain) {
  socket::inproc::failNext(socketName, Operation::Poll, Failure::ErrorResult, "nothing can come in");
  start();
  expectReported("Poll error in notification reception loop: nothing can come in", 251);
  expectThatItHasEndedAndCanBeStartedAgain();
}

TEST_F(TcpNotificationHubFrontEndReceptionEnd, IsTheContextsEndInAPollWhichIsLoggedAsInformation) {
  socket::inproc::failNext(socketName, Operation::Poll, Failure::ContextTermination, "the end");
  start();
  expectReported("TCP notification hub: the end", 230, 0);
  expectThatItHasEndedAndCanBeStartedAgain();
}

TEST_F(TcpNotificationHubFrontEndReceptionEnd, IsTheContextsEndInAReceiveToo) {
  socket::inproc::failNext(socketName, Operation::Receive, Failure::ContextTermination, "the end");
  start();
  deliverLines({"lost"});
  expectReported("TCP notification hub: the end", 230, 0);
  expectThatItHasEndedAndCanBeStartedAgain();
}

TEST_F(TcpNotificationHubFrontEndReceptionEnd, ComesWhenTheContextIsShutDownDuringAPoll) {
  start();
  ASSERT_TRUE(socket::inproc::waitUntilBlocked(socketName, Operation::Poll));
  socket::shutDownContext();
  ASSERT_TRUE(log_.waitFor("TCP notification hub: "));
  ASSERT_EQ(log_.records().size(), 1U);
  expectRecord(log_.records().front(), log_.records().front().message, 230, 0);
  expectThatItHasEndedAndCanBeStartedAgain();
}

TEST_F(TcpNotificationHubFrontEndReceptionEnd, ForWantOfALocalHubsFrontEndIsLogged) {
  hubFrontEnd_.reset();
  construct();
  EXPECT_NO_THROW(start());
  expectReported("Cannot start reception loop, invalid notification hub front-end", 207);
  EXPECT_TRUE(threadsFallTo(threadsBefore_));
  deliverLines({"never received"});
  frontEnd_.reset();
  EXPECT_THAT(linesUntilNow(), IsEmpty());
  EXPECT_EQ(log_.records().size(), 1U);
}

TEST_F(TcpNotificationHubFrontEndReceptionEnd, ForWantOfALocalHubsBackEndIsLoggedAndForwardingWorks) {
  frontEnd_.emplace(hubFrontEnd_, nullptr);
  EXPECT_NO_THROW(start());
  expectReported("Cannot start reception loop, invalid notification hub back-end", 214);
  deliverLines({"never received"});
  frontEnd_->SetEngineId(12);
  EXPECT_EQ(hubFrontEnd_->GetEngineId(), 12U);
  frontEnd_.reset();
  EXPECT_EQ(log_.records().size(), 1U);
}

TEST_F(TcpNotificationHubFrontEndReceptionEnd, ForWantOfBothNamesTheFrontEndFirst) {
  frontEnd_.emplace(nullptr, nullptr);
  start();
  expectReported("Cannot start reception loop, invalid notification hub front-end", 207);
  frontEnd_.reset();
  EXPECT_EQ(log_.records().size(), 1U);
}

/// What nobody can go on after.
class TcpNotificationHubFrontEndDeathTest : public NotificationFrontEndTest {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    construct();
  }
  /// Returns when the process has survived.
  void receiveOne() {
    test::leaveNoCoreFile();
    start();
    deliverLines({"fatal"});
    socket::inproc::waitUntilClosed(socketName);
  }
};

TEST_F(TcpNotificationHubFrontEndDeathTest, APollThatThrowsEndsTheProcess) {
  EXPECT_EXIT(
      {
        test::leaveNoCoreFile();
        socket::inproc::failNext(socketName, Operation::Poll, Failure::RuntimeError, "no more polls");
        start();
        socket::inproc::waitUntilClosed(socketName);
      },
      testing::KilledBySignal(SIGABRT), "no more polls");
}

TEST_F(TcpNotificationHubFrontEndDeathTest, ALocalHubThatThrowsNoRuntimeErrorEndsTheProcess) {
  hub_->onPush = [](const tamb::INotificationMessage&) { throw std::logic_error("no logic in it"); };
  EXPECT_EXIT(receiveOne(), testing::KilledBySignal(SIGABRT), "no logic in it");
  hub_->onPush = [](const tamb::INotificationMessage&) { throw 42; };  // NOLINT(hicpp-exception-baseclass)
  EXPECT_EXIT(receiveOne(), testing::KilledBySignal(SIGABRT), "'int'");
  // Not what the reception's own socket says when it is to end.
  hub_->onPush = [](const tamb::INotificationMessage&) {
    throw socket::ZmqContextTerminationException("the end of another socket");
  };
  EXPECT_EXIT(receiveOne(), testing::KilledBySignal(SIGABRT), "the end of another socket");
}

}  // namespace
}  // namespace qor::multiprocess_communication
