#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "CommandAndNotification.pb.h"
#include "TcpEngine.pb.h"
#include "qor/socket/Socket.h"
#include "runtime/messaging/MessageRules.h"
#include "tests/support/CapturedLog.h"

namespace qor::socket {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using ::testing::ThrowsMessage;
namespace proto = multiprocess_communication::proto;

const SocketLabel label{.name = "Judge", .protocol = Protocol::Subscriber, .endpoint = "inproc://rules"};

proto::EngineStatus status(proto::EngineStatus::Status value) {
  proto::EngineStatus message;
  message.set_status(value);
  return message;
}

/// A command list of that encoded size: one long text fills the rest.
proto::CommandMessageList listOfSize(std::size_t size) {
  proto::CommandMessageList list;
  auto& command = *list.add_messages();
  command.mutable_mediatime()->mutable_editrate()->set_numerator(25);
  command.mutable_mediatime()->mutable_editrate()->set_denominator(1);
  command.mutable_mediatime()->set_timenumber(0);
  command.set_commandid(1);
  command.set_workflowmanagerid("");
  command.set_engineid(1);
  command.set_stepid("");
  command.set_commandname(std::string(size, 'x'));
  while (list.ByteSizeLong() > size) command.mutable_commandname()->pop_back();
  return list;
}

std::string encoded(const google::protobuf::Message& message) {
  std::string bytes(checkSendable(&message, label), '\0');
  encode(message, bytes.data());
  return bytes;
}

TEST(SendableMessage, IsEncodedIntoTheSizeThatItWasCheckedFor) {
  const auto message = listOfSize(1'000);
  EXPECT_EQ(encoded(message), message.SerializeAsString());
}

TEST(SendableMessage, MayBeEmpty) {
  const proto::CommandMessageList empty;
  EXPECT_EQ(checkSendable(&empty, label), 0U);
  EXPECT_EQ(encoded(empty), "");
}

TEST(SendableMessage, MayBeAsLargeAsTheLargestBound) {
  const auto largest = listOfSize(Socket::maximumMessageSize);
  EXPECT_EQ(checkSendable(&largest, label), Socket::maximumMessageSize);
}

TEST(SendableMessage, IsNotAByteLarger) {
  const auto larger = listOfSize(Socket::maximumMessageSize + 1);
  EXPECT_THAT([&] { checkSendable(&larger, label); },
              ThrowsMessage<std::runtime_error>(AllOf(HasSubstr("Judge"), HasSubstr("inproc://rules"),
                                                      HasSubstr("CommandMessageList"),
                                                      HasSubstr("65537 bytes"), HasSubstr("65536 bytes"))));
}

TEST(SendableMessage, LacksNothing) {
  auto message = listOfSize(100);
  message.mutable_messages(0)->mutable_mediatime()->clear_timenumber();
  EXPECT_THAT([&] { checkSendable(&message, label); },
              ThrowsMessage<std::runtime_error>(AllOf(HasSubstr("Judge"), HasSubstr("CommandMessageList"),
                                                      HasSubstr("messages[0].mediaTime.timeNumber"))));
}

TEST(SendableMessage, IsNotNull) {
  EXPECT_THAT([] { checkSendable(nullptr, label); },
              ThrowsMessage<std::runtime_error>(AllOf(HasSubstr("Judge"), HasSubstr("null"))));
}

class ReceivedMessage : public ::testing::Test {
 protected:
  static ReceivedBytes received(const std::string& bytes, unsigned int parts = 1) {
    return {.data = bytes.data(), .size = bytes.size(), .parts = parts};
  }

  /// Parses into a message that is not empty.
  ReceiveResult judge(const ReceivedBytes& bytes, unsigned int sizeBound = Socket::maximumMessageSize) {
    message_ = status(proto::EngineStatus::Running);
    return decode(bytes, sizeBound, &message_, label);
  }

  /// The message is cleared, and the only log line, an error, names the socket and the reason.
  void expectRefusal(const std::string& reason) {
    EXPECT_FALSE(message_.has_status());
    EXPECT_EQ(message_.ByteSizeLong(), 0U);
    const std::vector<test::LogRecord> records = log_.records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].level, tamb::LogLevel::Error);
    EXPECT_THAT(records[0].message, AllOf(StartsWith("Judge (Subscriber inproc://rules): "),
                                          HasSubstr("EngineStatus"), HasSubstr(reason)));
  }

  test::CapturedLog log_;
  proto::EngineStatus message_;
};

TEST_F(ReceivedMessage, IsCompleteWhenNothingIsMissing) {
  EXPECT_EQ(judge(received(encoded(status(proto::EngineStatus::EndOfLife)))), Complete);
  EXPECT_EQ(message_.status(), proto::EngineStatus::EndOfLife);
  EXPECT_TRUE(log_.records().empty());
}

TEST_F(ReceivedMessage, IsCompleteWithFieldsThatAreNotKnown) {
  // A later version of the peer may send more fields.
  EXPECT_EQ(judge(received("\x08\x01\x7a\x03new")), Complete);
  EXPECT_EQ(message_.status(), proto::EngineStatus::Running);
  EXPECT_TRUE(log_.records().empty());
}

TEST_F(ReceivedMessage, IsCompleteAtTheBound) {
  const std::string bytes = encoded(status(proto::EngineStatus::Idle));
  EXPECT_EQ(judge(received(bytes), static_cast<unsigned int>(bytes.size())), Complete);
}

TEST_F(ReceivedMessage, IsTooLargeAByteAboveTheBound) {
  const std::string bytes = encoded(status(proto::EngineStatus::Idle));
  EXPECT_EQ(judge(received(bytes), static_cast<unsigned int>(bytes.size() - 1)), TooLarge);
  expectRefusal("2 bytes, the limit is 1 bytes");
}

TEST_F(ReceivedMessage, IsUnreadableWhenItsBytesAreGarbage) {
  EXPECT_EQ(judge(received("\xff\xff\xff\xff garbage")), Unreadable);
  expectRefusal("its 12 bytes cannot be parsed");
}

TEST_F(ReceivedMessage, IsUnreadableWhenItIsCutOff) {
  EXPECT_EQ(judge(received("\x08")), Unreadable);
  expectRefusal("its 1 bytes cannot be parsed");
}

TEST_F(ReceivedMessage, IsUnreadableInSeveralParts) {
  EXPECT_EQ(judge(received(encoded(status(proto::EngineStatus::Idle)), 2)), Unreadable);
  expectRefusal("2 parts");
}

TEST_F(ReceivedMessage, IsIncompleteWhenItIsEmptyAndSomethingIsRequired) {
  EXPECT_EQ(judge({.data = nullptr, .size = 0, .parts = 1}), Incomplete);
  expectRefusal("its 0 bytes lack status");
}

TEST_F(ReceivedMessage, IsIncompleteWhenARequiredEnumerationHasAnUnknownValue) {
  EXPECT_EQ(judge(received("\x08\x09")), Incomplete);
  expectRefusal("its 2 bytes lack status");
}

TEST_F(ReceivedMessage, NeedsAMessageToGoInto) {
  EXPECT_THAT([] { decode(received("\x08\x01"), 100, nullptr, label); },
              ThrowsMessage<std::runtime_error>(AllOf(HasSubstr("Judge"), HasSubstr("null"))));
}

}  // namespace
}  // namespace qor::socket
