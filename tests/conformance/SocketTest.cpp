#include "tests/conformance/SocketTest.h"

#include <filesystem>
#include <ostream>
#include <stdexcept>
#include <system_error>

namespace qor::socket {

void PrintTo(SocketEndpoint::Transport transport, std::ostream* stream) {
  switch (transport) {
    case SocketEndpoint::Transport::Tcp:
      *stream << "tcp";
      break;
    case SocketEndpoint::Transport::Ipc:
      *stream << "ipc";
      break;
    case SocketEndpoint::Transport::Inproc:
      *stream << "inproc";
      break;
  }
}

}  // namespace qor::socket

namespace qor::test {

SocketTest::~SocketTest() {
  std::error_code error;
  EXPECT_TRUE(std::filesystem::is_empty(directory_.path(), error))
      << "a socket file is left in " << directory_.path();
}

SocketEndpoint SocketTest::newEndpoint(const std::string& parameters) {
  const std::string number = std::to_string(++endpoints_);
  const auto endpoint = [&](const std::string& address) {
    return SocketEndpoint::FromString(address + parameters);
  };
  switch (GetParam()) {
    case Transport::Tcp:
      return endpoint("tcp://127.0.0.1:0").withReservedPort();
    case Transport::Ipc:
      return endpoint("ipc://" + (directory_.path() / ("socket" + number)).string());
    case Transport::Inproc:
      return endpoint("inproc://" + directory_.path().filename().string() + '-' + number);
  }
  throw std::logic_error("unknown transport");
}

SocketEndpoint SocketTest::newSilentEndpoint() {
  // The text does not include the port's reservation.
  return SocketEndpoint::FromString(newEndpoint().toString(Protocol::Plain));
}

std::string transportName(const ::testing::TestParamInfo<Transport>& info) {
  return ::testing::PrintToString(info.param);
}

void awaitMessage(Socket& socket) {
  std::string errorText;
  const int result = socket.poll(std::chrono::milliseconds(patience).count(), errorText);
  if (result != 0) {
    throw std::runtime_error("no message came to " + socket.debugString() + ": poll returned " +
                             std::to_string(result) + ' ' + errorText);
  }
}

proto::EngineFrontEndRequest numbered(std::uint32_t number) {
  proto::EngineFrontEndRequest message;
  message.set_type(proto::EngineFrontEndRequest::Ping);
  message.set_timeoutmilliseconds(number);
  return message;
}

void sendNumber(Socket& socket, std::uint32_t number) {
  auto message = numbered(number);
  socket.sendProtoBuf(&message);
}

std::uint32_t receiveNumber(Socket& socket) {
  awaitMessage(socket);
  proto::EngineFrontEndRequest message;
  if (socket.receiveProtoBuf(&message, Socket::maximumMessageSize) != 0 ||
      message.type() != proto::EngineFrontEndRequest::Ping || !message.has_timeoutmilliseconds()) {
    throw std::runtime_error("what came to " + socket.debugString() + " carries no number");
  }
  return message.timeoutmilliseconds();
}

void expectNumbers(Socket& socket, std::uint32_t first, std::uint32_t last) {
  for (std::uint32_t number = first; number <= last; ++number) ASSERT_EQ(receiveNumber(socket), number);
}

void sendReply(Socket& replier, std::uint32_t number) {
  proto::EngineBackEndReply reply;
  reply.set_type(proto::EngineBackEndReply::Success);
  reply.set_replystring(std::to_string(number));
  replier.sendProtoBuf(&reply);
}

std::uint32_t receiveReply(Socket& requester) {
  proto::EngineBackEndReply reply;
  if (requester.receiveProtoBuf(&reply, Socket::maximumMessageSize) != 0) {
    throw std::runtime_error("what came to " + requester.debugString() + " is no reply");
  }
  return static_cast<std::uint32_t>(std::stoul(reply.replystring()));
}

void answerOne(Socket& replier) { sendReply(replier, receiveNumber(replier)); }

proto::EngineBackEndReply replyOfSize(std::size_t size) {
  proto::EngineBackEndReply reply;
  reply.set_type(proto::EngineBackEndReply::Success);
  reply.set_replystring(std::string(size, 'x'));
  while (reply.ByteSizeLong() > size) reply.mutable_replystring()->pop_back();
  if (reply.ByteSizeLong() != size) throw std::logic_error("no reply has exactly that size");
  return reply;
}

}  // namespace qor::test
