#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "TcpEngineBackEnd.h"
#include "TcpEngineFrontEnd.h"
#include "qor/socket/Socket.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeEngine.h"
#include "tests/support/ManualClock.h"

namespace qor::socket {

/// These sockets replace the runtime's: the linker finds them first. Only the requester of a front end can be
/// constructed, and it has no peer. The constructors of the other sockets throw.
class Socket::Implementation {};

Socket::Socket(const std::string& name, ClosePolicy::ClosePolicy /*closePolicy*/) {
  if (name != "TcpEngineFrontEndCommandSocket") throw std::runtime_error("no more sockets");
}
Socket::~Socket() = default;
void Socket::createAndConnect(Protocol::Protocol /*protocol*/, const SocketEndpoint& /*endpoint*/,
                              unsigned int /*timeOutMilliseconds*/) {}
// As platform/ declares them, with members that these do not need.
// NOLINTBEGIN(readability-convert-member-functions-to-static)
bool Socket::isOpen() const { return true; }
void Socket::close() {}
int Socket::poll(unsigned int /*timeOutMilliseconds*/, std::string& /*errorText*/) { return 1; }
void Socket::sendProtoBuf(google::protobuf::Message* /*message*/) { throw std::runtime_error("no peer"); }
int Socket::receiveProtoBuf(google::protobuf::Message* /*message*/, unsigned int /*sizeBound*/) {
  throw std::runtime_error("no peer");
}
std::string Socket::debugString() const { return "a requester without a peer"; }
// NOLINTEND(readability-convert-member-functions-to-static)

}  // namespace qor::socket

namespace qor::multiprocess_communication {
namespace {

/// How the threads of the engine control channel handle a socket whose constructor throws.
class EngineControlWithoutSockets : public testing::Test {
 protected:
  /// Checks that this text, and nothing else, is logged once as an error within 10 s.
  void expectError(const std::string& text) {
    ASSERT_TRUE(log_.waitFor(text)) << text;
    const auto records = log_.recordsWith(text);
    ASSERT_EQ(records.size(), 1U) << text;
    EXPECT_EQ(records.front().message, text);
    EXPECT_EQ(records.front().level, tamb::LogLevel::Error) << text;
  }

  const test::CapturedLog log_;
  const std::shared_ptr<test::ManualClock> clock_ = std::make_shared<test::ManualClock>();
};

TEST_F(EngineControlWithoutSockets, IsLoggedByTheBackEndWhichGoesOn) {
  const auto engine = std::make_shared<test::FakeEngine>();
  const TcpEngineBackEnd backEnd(engine, socket::SocketEndpoint::FromString("inproc://requests"),
                                 socket::SocketEndpoint::FromString("inproc://status"), clock_);
  expectError("TcpEngineBackEnd: commandListenThreadFunction: failed binding socket: no more sockets");
  expectError("TcpEngineBackEnd: statusPublicationThreadFunction: failed binding socket: no more sockets");
}

TEST_F(EngineControlWithoutSockets, IsLoggedByTheFrontEndWhichGoesOn) {
  TcpEngineFrontEnd frontEnd(clock_);
  frontEnd.SetInitConfig(TcpEngineFrontEnd::GenerateConfig("inproc://requests", "inproc://status"));
  expectError(
      "TcpEngineFrontEnd: engineStatusReceptionThreadFunction: Failed creating socket: no more sockets");
}

}  // namespace
}  // namespace qor::multiprocess_communication
