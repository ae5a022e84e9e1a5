#include <stdexcept>
#include <string>
#include <vector>

#include "CommandAndNotification.pb.h"
#include "tests/conformance/SocketTest.h"
#include "tests/support/CapturedLog.h"

namespace qor::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

/// Which messages may be sent, and how a receiver handles what arrives.
class Content : public SocketTest {
 protected:
  Content() {
    publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
    subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  }

  /// Receives into a message that is not empty; expects that the bytes are rejected, that the message is
  /// cleared, and that exactly one error line names the socket, the size and the reason.
  void expectRefused(google::protobuf::Message& message, unsigned int sizeBound, std::size_t size,
                     const std::string& reason) {
    const CapturedLog log;
    awaitMessage(subscriber_);
    EXPECT_NE(subscriber_.receiveProtoBuf(&message, sizeBound), 0);
    EXPECT_EQ(message.ByteSizeLong(), 0U);
    const std::vector<LogRecord> records = log.recordsWith("ContentSubscriber");
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].level, tamb::LogLevel::Error);
    EXPECT_THAT(records[0].message, AllOf(HasSubstr(endpoint_.toString(Protocol::Plain)),
                                          HasSubstr(std::to_string(size) + " bytes"), HasSubstr(reason)));
    EXPECT_EQ(records[0].message.find('\n'), std::string::npos);
  }

  void expectNextIsReceived() {
    sendNumber(publisher_, 4'711);
    EXPECT_EQ(receiveNumber(subscriber_), 4'711U);
  }

  static proto::EngineStatus usedStatus() {
    proto::EngineStatus status;
    status.set_status(proto::EngineStatus::Running);
    return status;
  }

  SocketEndpoint endpoint_ = newEndpoint();
  Socket publisher_{"ContentPublisher", ClosePolicy::Patient};
  Socket subscriber_{"ContentSubscriber", ClosePolicy::Patient};
};

INSTANTIATE_TEST_SUITE_P(Over, Content, everyTransport, transportName);

TEST_P(Content, ArrivesAsItWasSent) {
  proto::NotificationMessageList sent;
  auto& notification = *sent.add_messages();
  notification.mutable_time()->mutable_editrate()->set_numerator(25);
  notification.mutable_time()->mutable_editrate()->set_denominator(1);
  notification.mutable_time()->set_timenumber(-1);
  notification.set_workflowstep(std::string("step\0with a zero", 16));
  notification.set_notificationline("Zeile äöü");
  notification.set_id("");
  notification.set_commandid(0xffff'ffff);
  notification.set_workflowmanagerid("manager");
  notification.set_engineid(1);
  publisher_.sendProtoBuf(&sent);

  awaitMessage(subscriber_);
  proto::NotificationMessageList received;
  EXPECT_EQ(subscriber_.receiveProtoBuf(&received, Socket::maximumMessageSize), 0);
  EXPECT_EQ(received.SerializeAsString(), sent.SerializeAsString());
}

TEST_P(Content, ReplacesThePreviousContentOfTheMessage) {
  sendNumber(publisher_, 1);
  awaitMessage(subscriber_);
  proto::EngineFrontEndRequest request;
  request.set_type(proto::EngineFrontEndRequest::HeartBeat);
  request.set_timeoutmilliseconds(99);
  EXPECT_EQ(subscriber_.receiveProtoBuf(&request, Socket::maximumMessageSize), 0);
  EXPECT_EQ(request.SerializeAsString(), numbered(1).SerializeAsString());
}

TEST_P(Content, MayBeEmptyWhereNothingIsRequired) {
  proto::CommandMessageList none;
  publisher_.sendProtoBuf(&none);
  awaitMessage(subscriber_);
  proto::CommandMessageList received;
  received.add_messages();
  EXPECT_EQ(subscriber_.receiveProtoBuf(&received, 0), 0);
  EXPECT_EQ(received.messages_size(), 0);
}

TEST_P(Content, IsSentUpToTheLargestSizeAndNotAByteBeyond) {
  auto largest = replyOfSize(65'536);
  publisher_.sendProtoBuf(&largest);
  auto larger = replyOfSize(65'537);
  EXPECT_THAT([&] { publisher_.sendProtoBuf(&larger); },
              ThrowsMessage<std::runtime_error>(AllOf(HasSubstr("ContentPublisher"),
                                                      HasSubstr(endpoint_.toString(Protocol::Plain)),
                                                      HasSubstr("65537"), HasSubstr("65536"))));

  awaitMessage(subscriber_);
  proto::EngineBackEndReply received;
  EXPECT_EQ(subscriber_.receiveProtoBuf(&received, 65'536), 0);
  EXPECT_EQ(received.replystring(), largest.replystring());
  expectNextIsReceived();
}

TEST_P(Content, IsNotSentWhenARequiredFieldIsMissing) {
  proto::CommandMessageList incomplete;
  incomplete.add_messages()->set_commandname("Start");
  EXPECT_THAT([&] { publisher_.sendProtoBuf(&incomplete); },
              ThrowsMessage<std::runtime_error>(
                  AllOf(HasSubstr("ContentPublisher"), HasSubstr("messages[0].workflowManagerId"))));
  expectNextIsReceived();
}

TEST_P(Content, IsNotSentFromANullMessage) {
  EXPECT_THAT([&] { publisher_.sendProtoBuf(nullptr); },
              ThrowsMessage<std::runtime_error>(HasSubstr("ContentPublisher")));
  expectNextIsReceived();
}

TEST_P(Content, IsRefusedWhenItIsLargerThanTheBound) {
  auto reply = replyOfSize(1'025);
  publisher_.sendProtoBuf(&reply);
  auto message = replyOfSize(10);
  expectRefused(message, 1'024, 1'025, "limit is 1024 bytes");
  expectNextIsReceived();
}

TEST_P(Content, IsAcceptedWhenItIsAsLargeAsTheBound) {
  auto reply = replyOfSize(1'024);
  publisher_.sendProtoBuf(&reply);
  awaitMessage(subscriber_);
  proto::EngineBackEndReply received;
  EXPECT_EQ(subscriber_.receiveProtoBuf(&received, 1'024), 0);
}

TEST_P(Content, IsRefusedWhenItCannotBeParsed) {
  // Field 2 is a text in one schema and a message in the other, where the length of a text exceeds the end.
  proto::EngineBackEndReply reply;
  reply.set_type(proto::EngineBackEndReply::Failure);
  reply.set_errorstring("\n\x7f");
  publisher_.sendProtoBuf(&reply);
  proto::ParametersCollectionInstance message;
  message.mutable_data()->add_int64params()->set_key("left over");
  expectRefused(message, Socket::maximumMessageSize, reply.ByteSizeLong(), "cannot be parsed");
  expectNextIsReceived();
}

TEST_P(Content, IsRefusedWhenARequiredFieldIsMissing) {
  proto::EngineBackEndReply reply;
  reply.set_type(proto::EngineBackEndReply::Failure);
  publisher_.sendProtoBuf(&reply);
  proto::EditRate message;  // Has a numerator, but no denominator.
  message.set_denominator(1);
  expectRefused(message, Socket::maximumMessageSize, reply.ByteSizeLong(), "denominator");
  expectNextIsReceived();
}

TEST_P(Content, IsRefusedWhenItIsEmptyAndSomethingIsRequired) {
  proto::CommandMessageList empty;
  publisher_.sendProtoBuf(&empty);
  auto message = usedStatus();
  expectRefused(message, Socket::maximumMessageSize, 0, "status");
  expectNextIsReceived();
}

TEST_P(Content, IsRefusedWhenARequiredEnumerationHasAnUnknownValue) {
  proto::EngineFrontEndRequest request;
  request.set_type(proto::EngineFrontEndRequest::HeartBeat);  // No status has this number.
  publisher_.sendProtoBuf(&request);
  auto message = usedStatus();
  expectRefused(message, Socket::maximumMessageSize, request.ByteSizeLong(), "status");
  EXPECT_FALSE(message.has_status());
  expectNextIsReceived();
}

}  // namespace
}  // namespace qor::test
