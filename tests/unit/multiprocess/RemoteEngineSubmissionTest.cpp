#include <limits>
#include <thread>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tests/unit/multiprocess/ProtoMatchers.h"
#include "tests/unit/multiprocess/RemoteEngineTest.h"

namespace qor::multiprocess_communication {
namespace {

using test::BackgroundCall;
using testing::HasSubstr;
using testing::InSequence;
using testing::IsEmpty;
using testing::Return;
using testing::StrictMock;
using testing::ThrowsMessage;

class MockDescription : public tamb::IEngineDescription {
 public:
  MOCK_METHOD(std::string, GetWorkflowManagerId, (), (const, override));
  MOCK_METHOD(std::string, GetDescription, (), (const, override));
  MOCK_METHOD(std::int32_t, GetEngineId, (), (const, override));
};

/// Its one exchange with the submission service.
class RemoteEngineSubmission : public RemoteEngineTest {
 protected:
  /// Submits with a description of those texts, and returns what the service was asked.
  api::ApiToServiceRequest requestFor(const std::string& manager, const std::string& text, std::uint32_t id) {
    startService();
    process_.emplace(endpoints());
    engine_->SetInitConfig(config());
    engine_->AddEngineDescription(std::make_shared<tamb::EngineDescription>(manager, text, id));
    const auto requests = service_->requests.all();
    if (requests.size() != 1) throw std::runtime_error("not one request was made");
    return requests.front();
  }

  /// Checks that the submission fails with that text for an unexpected reply, and that nothing is connected.
  void expectUnexpected(const Reply& reply) {
    process_.emplace(endpoints());
    engine_->SetInitConfig(config());
    expectRefused([this] { engine_->AddEngineDescription(description()); },
                  "Unexpected reply from service: " + reply.DebugString(), "true", 197);
    EXPECT_THAT(hostSockets(), IsEmpty());
    EXPECT_EQ(submissions(), 1U);
  }
  /// Checks that the submission fails with an exception of the sockets' that says this, and that nothing is
  /// connected.
  template <class Exception = std::runtime_error>
  void expectFailure(const testing::Matcher<std::string>& text) {
    EXPECT_THAT([this] { submit(); }, testing::Throws<Exception>(testing::Property(&Exception::what, text)));
    EXPECT_THAT(log_.recordsWith("Remote engine front end"), IsEmpty()) << "it is none of its own failures";
    EXPECT_THAT(hostSockets(), IsEmpty());
  }
};

TEST_F(RemoteEngineSubmission, SaysWhichEngineForWhomAndInWhichVersionOfTheExchange) {
  EXPECT_THAT(requestFor("manager-17", R"({"engine": "Mixer"})", 7), Says(R"(
      kind: 4
      [qor.proto.api_service.ApiToServiceRequestEngineSubmission] {
        workflowManagerId: "manager-17"
        description: "{\"engine\": \"Mixer\"}"
        engineId: 7
        version: 2
      })"));
}

TEST_F(RemoteEngineSubmission, CarriesWhateverTheDescriptionSays) {
  EXPECT_THAT(requestFor("gr\xc3\xbc\xc3\x9f", std::string("\0\xff", 2), 2'147'483'648), Says(R"(
      kind: 4
      [qor.proto.api_service.ApiToServiceRequestEngineSubmission] {
        workflowManagerId: "gr\303\274\303\237"
        description: "\000\377"
        engineId: -2147483648
        version: 2
      })"));
}

TEST_F(RemoteEngineSubmission, CarriesWhatIsEmptyToo) {
  EXPECT_THAT(requestFor("", "", 0), Says(R"(
      kind: 4
      [qor.proto.api_service.ApiToServiceRequestEngineSubmission] {
        workflowManagerId: "" description: "" engineId: 0 version: 2
      })"));
}

TEST_F(RemoteEngineSubmission, AsksTheDescriptionOnceOnTheCallersThread) {
  startService();
  process_.emplace(endpoints());
  const auto asked = std::make_shared<StrictMock<MockDescription>>();
  engine_->AddEngineDescription(asked);
  std::thread::id thread;
  {
    const InSequence inThisOrder;
    EXPECT_CALL(*asked, GetWorkflowManagerId).WillOnce([&] {
      thread = std::this_thread::get_id();
      return "manager-17";
    });
    EXPECT_CALL(*asked, GetDescription).WillOnce(Return("{}"));
    EXPECT_CALL(*asked, GetEngineId).WillOnce(Return(7));
  }
  EXPECT_NO_THROW(engine_->SetInitConfig(config()));
  EXPECT_EQ(thread, std::this_thread::get_id());
  EXPECT_EQ(submissions(), 1U);
}

TEST_F(RemoteEngineSubmission, BlocksItsCallerUntilTheServiceAnswersOnASocketOfThatName) {
  std::promise<void> mayAnswer;
  startService([answer = mayAnswer.get_future().share()] {
    answer.wait_for(patience);
    return submitted();
  });
  process_.emplace(endpoints());
  BackgroundCall submitting([&] { submit(); });
  ASSERT_TRUE(socket::inproc::waitUntil("EngineSubmissionSocket", [](const auto& state) {
    return state.protocol == socket::Protocol::Requester && state.endpoint == serviceAddress &&
           state.blockedIn == Operation::Receive;
  }));
  EXPECT_THAT(hostSockets(), testing::ElementsAre(submission)) << "nothing is connected before the answer";
  EXPECT_FALSE(submitting.endsWithin(std::chrono::milliseconds(50)));
  mayAnswer.set_value();
  EXPECT_NO_THROW(submitting.get());
  EXPECT_THAT(hostSockets(), testing::ElementsAre(commands, notifications, control));
}

TEST_F(RemoteEngineSubmission, ThatIsRefusedTellsTheRefusalOfTheService) {
  Reply reply;
  reply.set_kind(5);
  reply.set_refusal("there is no engine \"Mixer\"");
  startService(reply);
  expectUnexpected(reply);
  EXPECT_EQ(log_.recordsWith("there is no engine \\\"Mixer\\\"").size(), 1U);
}

TEST_F(RemoteEngineSubmission, IsNotTakenForGrantedWhenAnotherKindOfReplyHasEndpoints) {
  for (const std::int32_t kind : {0, 1, 2, 4, 5, -3, 259, std::numeric_limits<std::int32_t>::max()}) {
    Reply reply = submitted();
    reply.set_kind(kind);
    engine_.emplace();
    process_.reset();
    service_.reset();
    startService(reply);
    expectUnexpected(reply);
  }
}

TEST_F(RemoteEngineSubmission, WithAReplyThatCannotBeReadFailsAsWithAnEmptyOne) {
  Reply withoutKind = submitted();
  withoutKind.clear_kind();
  Reply withoutEndpoint = submitted();
  withoutEndpoint.MutableExtension(api::ServiceToApiReplyEngineSubmission)->clear_notificationendpoint();
  for (const std::string& bytes :
       {std::string(), std::string("\xff\xff nonsense"), withoutKind.SerializePartialAsString(),
        withoutEndpoint.SerializePartialAsString(), submitted().SerializeAsString() + '\x0a'}) {
    engine_.emplace();
    process_.reset();
    service_.reset();
    startServiceThatSays(bytes);
    expectUnexpected(Reply());
  }
  EXPECT_EQ(log_.recordsWith("EngineSubmissionSocket (Requester inproc://submission-service): dropped a "
                             "message that is not a ServiceToApiReply")
                .size(),
            5U);
}

TEST_F(RemoteEngineSubmission, TakesAReplyOf65536BytesAndNoLargerOne) {
  Reply reply = submitted();
  reply.set_refusal(std::string(65'000, 'x'));
  reply.mutable_refusal()->append(65'536 - reply.ByteSizeLong(), 'x');
  ASSERT_EQ(reply.ByteSizeLong(), 65'536U);
  startServiceThatSays(reply.SerializeAsString());
  process_.emplace(endpoints());
  EXPECT_NO_THROW(submit());
  engine_.emplace();
  process_.reset();
  service_.reset();
  reply.mutable_refusal()->push_back('x');
  startServiceThatSays(reply.SerializeAsString());
  expectUnexpected(Reply());
}

TEST_F(RemoteEngineSubmission, WithoutEndpointsInTheReplyConnectsNothing) {
  Reply reply;
  reply.set_kind(3);
  startService(reply);
  expectFailure(complaintAbout(""));
}

TEST_F(RemoteEngineSubmission, WithACommandEndpointThatCannotBeReadConnectsNothing) {
  auto where = endpoints();
  where.set_commandendpoint("commands, please");
  startService(submitted(where));
  expectFailure(complaintAbout("commands, please"));
}

TEST_F(RemoteEngineSubmission, WithANotificationEndpointThatCannotBeReadConnectsNothing) {
  auto where = endpoints();
  where.set_notificationendpoint("tcp://nowhere");
  startService(submitted(where));
  expectFailure(complaintAbout("tcp://nowhere"));
}

TEST_F(RemoteEngineSubmission, ToAnEndpointThatCannotBeReadFailsBeforeAnySocketIsOpened) {
  socket::inproc::failNext(submission, Operation::Open, Failure::RuntimeError, "a socket was opened");
  engine_->SetInitConfig(config("serviceendpoint_undef"));
  EXPECT_THAT([&] { engine_->AddEngineDescription(description()); },
              ThrowsMessage<std::runtime_error>(complaintAbout("serviceendpoint_undef")));
  expectRefusesAnotherDescription();
}

TEST_F(RemoteEngineSubmission, GivesAServiceThatIsNotThereTheDefaultTime) {
  expectFailure(
      HasSubstr("EngineSubmissionSocket (Requester inproc://submission-service): no peer answered "
                "within 5000 ms"));
}

TEST_F(RemoteEngineSubmission, EndsWithAServiceThatDiesBeforeItAnswers) {
  startService([this] {
    service_->leave();
    return std::nullopt;
  });
  expectFailure(HasSubstr("the connection was lost before the reply came"));
}

TEST_F(RemoteEngineSubmission, PassesFailuresOfItsSocketOnUnchanged) {
  for (const auto operation : {Operation::Open, Operation::Send, Operation::Receive}) {
    service_.reset();
    startService();
    engine_.emplace();
    socket::inproc::failNext(submission, operation, Failure::RuntimeError, "broken");
    expectFailure("broken");
    engine_.emplace();
    socket::inproc::failNext(submission, operation, Failure::ContextTermination, "the end");
    expectFailure<socket::ZmqContextTerminationException>("the end");
  }
}

TEST_F(RemoteEngineSubmission, ThatIsLargerThanAMessageMayBeIsNotMade) {
  startService();
  engine_->SetInitConfig(config());
  EXPECT_THAT([&] { engine_->AddEngineDescription(description(std::string(65'536, 'x'))); },
              ThrowsMessage<std::runtime_error>(HasSubstr("the limit is 65536 bytes")));
  EXPECT_EQ(submissions(), 0U);
  EXPECT_THAT(hostSockets(), IsEmpty());
}

TEST_F(RemoteEngineSubmission, EndsWithTheContext) {
  std::promise<void> mayAnswer;
  startService([answer = mayAnswer.get_future().share()] {
    answer.wait_for(patience);
    return submitted();
  });
  BackgroundCall submitting([&] { submit(); });
  ASSERT_TRUE(socket::inproc::waitUntilBlocked(submission, Operation::Receive));
  socket::shutDownContext();
  EXPECT_THROW(submitting.get(), socket::ZmqContextTerminationException);
  mayAnswer.set_value();
  EXPECT_THAT(hostSockets(), IsEmpty());
}

}  // namespace
}  // namespace qor::multiprocess_communication
