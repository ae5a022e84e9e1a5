#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>

#include "TcpEngine.pb.h"
#include "qor/socket/Socket.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryDirectory.h"

namespace qor::socket {

/// The name of a transport in the names and reports of tests.
void PrintTo(SocketEndpoint::Transport transport, std::ostream* stream);

}  // namespace qor::socket

namespace qor::test {

namespace ClosePolicy = socket::ClosePolicy;
namespace Protocol = socket::Protocol;
namespace proto = multiprocess_communication::proto;
using socket::Socket;
using socket::SocketEndpoint;
using socket::ZmqContextTerminationException;
using Transport = SocketEndpoint::Transport;

/// The deadline for events that have to happen, however slow the machine is.
constexpr std::chrono::seconds patience{20};
/// The deadline for events that have to happen at once: far more than they take, and far less than any
/// time-out they could be mistaken for.
constexpr std::chrono::seconds atOnce{5};

/// Each test of the suite runs over each transport.
class SocketTest : public ::testing::TestWithParam<Transport> {
 public:
  /// An endpoint that is not bound. Its port, if any, is reserved for the first socket that binds it, so that
  /// a peer finds a listener that does not answer. The text ends with the parameters.
  SocketEndpoint newEndpoint(const std::string& parameters = "");
  /// An endpoint without a listener.
  SocketEndpoint newSilentEndpoint();

  /// Checks that no socket file remains, once the sockets of the derived fixture are closed.
  ~SocketTest() override;

 protected:
  SocketTest() = default;

 private:
  const TemporaryDirectory directory_;
  unsigned int endpoints_ = 0;
};

/// Instantiates the tests of one file.
const auto everyTransport = ::testing::Values(Transport::Tcp, Transport::Ipc, Transport::Inproc);
std::string transportName(const ::testing::TestParamInfo<Transport>& info);

class Stopwatch {
 public:
  std::chrono::milliseconds elapsed() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start_);
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Waits until a message can be received; throws if none arrives.
void awaitMessage(Socket& socket);

/// A number identifies each message.
proto::EngineFrontEndRequest numbered(std::uint32_t number);
void sendNumber(Socket& socket, std::uint32_t number);
/// Waits for one; throws if none arrives or its content has changed.
std::uint32_t receiveNumber(Socket& socket);
/// Receives the numbers from `first` to `last`, in order and without a gap.
void expectNumbers(Socket& socket, std::uint32_t first, std::uint32_t last);

/// A reply that contains a number.
void sendReply(Socket& replier, std::uint32_t number);
/// Waits for one without a poll; throws if its content has changed.
std::uint32_t receiveReply(Socket& requester);
/// Receives one request and sends its number back.
void answerOne(Socket& replier);

/// A reply whose encoding has exactly that many bytes.
proto::EngineBackEndReply replyOfSize(std::size_t size);

}  // namespace qor::test
