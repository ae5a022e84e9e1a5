#include <memory>
#include <stdexcept>
#include <vector>

#include "tests/conformance/SocketTest.h"
#include "tests/support/BackgroundCall.h"

namespace qor::test {
namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

/// The replying side: whatever one requester does, the next one is served.
class Replier : public SocketTest {
 protected:
  Replier() { replier_.createAndConnect(Protocol::Replier, endpoint_, 0); }

  SocketEndpoint endpoint_ = newEndpoint();
  Socket replier_{"ReplierTestReplier", ClosePolicy::Patient};
};

INSTANTIATE_TEST_SUITE_P(Over, Replier, everyTransport, transportName);

TEST_P(Replier, IsNotBlockedByARequestThatItDoesNotAnswer) {
  Socket ignored("IgnoredRequester", ClosePolicy::Patient);
  ignored.createAndConnect(Protocol::Requester, endpoint_, 0);
  Socket served("ServedRequester", ClosePolicy::Patient);
  served.createAndConnect(Protocol::Requester, endpoint_, 0);

  sendNumber(ignored, 1);
  EXPECT_EQ(receiveNumber(replier_), 1U);
  sendNumber(served, 2);
  answerOne(replier_);
  EXPECT_EQ(receiveReply(served), 2U);

  sendNumber(ignored, 3);
  answerOne(replier_);
  EXPECT_EQ(receiveReply(ignored), 3U);
}

TEST_P(Replier, ThrowsWhenTheRequesterHasLeftBeforeItsReply) {
  // A vanished requester is noticed a little later; the poll waits for that.
  bool wasTold = false;
  for (unsigned int time = 1; !wasTold && time < 10'000; time *= 2) {
    {
      Socket requester("VanishingRequester", ClosePolicy::Patient);
      requester.createAndConnect(Protocol::Requester, endpoint_, 0);
      sendNumber(requester, 1);
      EXPECT_EQ(receiveNumber(replier_), 1U);
    }
    std::string errorText;
    EXPECT_EQ(replier_.poll(time, errorText), 1) << errorText;
    try {
      sendReply(replier_, 1);
    } catch (const std::runtime_error& error) {
      EXPECT_THAT(error.what(), HasSubstr("ReplierTestReplier"));
      wasTold = true;
    }
  }
  EXPECT_TRUE(wasTold);

  Socket next("NextRequester", ClosePolicy::Patient);
  next.createAndConnect(Protocol::Requester, endpoint_, 0);
  sendNumber(next, 2);
  answerOne(replier_);
  EXPECT_EQ(receiveReply(next), 2U);
}

TEST_P(Replier, GetsARequestWhoseSenderClosesAtOnce) {
  for (std::uint32_t number = 1; number <= 20; ++number) {
    Socket requester("HastyRequester", ClosePolicy::Patient);
    requester.createAndConnect(Protocol::Requester, endpoint_, 0);
    sendNumber(requester, number);
    requester.close();
    EXPECT_EQ(receiveNumber(replier_), number);
  }
}

TEST_P(Replier, GivesEachOfManyRequestersItsOwnReply) {
  constexpr std::uint32_t requesters = 8;
  constexpr std::uint32_t requestsOfEach = 200;
  std::vector<std::unique_ptr<BackgroundCall<void>>> calls;
  for (std::uint32_t i = 0; i < requesters; ++i) {
    calls.push_back(std::make_unique<BackgroundCall<void>>([this, i] {
      Socket requester("OneOfMany", ClosePolicy::Patient);
      requester.createAndConnect(Protocol::Requester, endpoint_, 0);
      for (std::uint32_t number = i * 1'000; number < i * 1'000 + requestsOfEach; ++number) {
        sendNumber(requester, number);
        ASSERT_EQ(receiveReply(requester), number);
      }
    }));
  }
  for (std::uint32_t i = 0; i < requesters * requestsOfEach; ++i) answerOne(replier_);
  for (const auto& call : calls) call->get();
}

TEST_P(Replier, CannotReplyWithoutARequest) {
  EXPECT_THAT([&] { sendReply(replier_, 1); },
              ThrowsMessage<std::runtime_error>(HasSubstr("ReplierTestReplier")));
}

TEST_P(Replier, RepliesToEachRequestOnce) {
  Socket requester("ServedRequester", ClosePolicy::Patient);
  requester.createAndConnect(Protocol::Requester, endpoint_, 0);
  sendNumber(requester, 1);
  answerOne(replier_);
  EXPECT_THROW(sendReply(replier_, 2), std::runtime_error);
  EXPECT_EQ(receiveReply(requester), 1U);
  sendNumber(requester, 3);
  answerOne(replier_);
  EXPECT_EQ(receiveReply(requester), 3U);
}

TEST_P(Replier, AnswersTheRequestReceivedLastEvenWhenItHasSeenThatOneMoreIsThere) {
  Socket first("FirstRequester", ClosePolicy::Patient);
  first.createAndConnect(Protocol::Requester, endpoint_, 0);
  Socket second("SecondRequester", ClosePolicy::Patient);
  second.createAndConnect(Protocol::Requester, endpoint_, 0);
  sendNumber(first, 1);
  ASSERT_EQ(receiveNumber(replier_), 1U);
  sendNumber(second, 2);
  awaitMessage(replier_);
  sendReply(replier_, 1);
  EXPECT_EQ(receiveReply(first), 1U);
  answerOne(replier_);
  EXPECT_EQ(receiveReply(second), 2U);
}

TEST_P(Replier, CanAnswerARequestWhoseContentItRefused) {
  Socket requester("ServedRequester", ClosePolicy::Patient);
  requester.createAndConnect(Protocol::Requester, endpoint_, 0);
  sendNumber(requester, 1);
  proto::EngineFrontEndRequest request;
  EXPECT_NE(replier_.receiveProtoBuf(&request, 1), 0);
  sendReply(replier_, 5);
  EXPECT_EQ(receiveReply(requester), 5U);
}

}  // namespace
}  // namespace qor::test
