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

/// How a transport is called in the names and the reports of tests.
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

/// For what has to happen, however slow the machine.
constexpr std::chrono::seconds patience{20};
/// For what has to happen at once: far more than it takes, and far less than any wait that it might be
/// mistaken for.
constexpr std::chrono::seconds atOnce{5};

/// Each test of the suite runs over each transport.
class SocketTest : public ::testing::TestWithParam<Transport> {
 public:
  /// An endpoint that is not bound. Its port, if it has one, is held for the first socket that binds it, so
  /// that a peer meets somebody who listens and says nothing. The parameters end its text.
  SocketEndpoint newEndpoint(const std::string& parameters = "");
  /// An endpoint where nobody listens.
  SocketEndpoint newSilentEndpoint();

  /// Checks that no socket file is left, once the sockets of the derived fixture are closed.
  ~SocketTest() override;

 protected:
  SocketTest() = default;

 private:
  const TemporaryDirectory directory_;
  unsigned int endpoints_ = 0;
};

/// To instantiate the tests of one file with.
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

/// Waits until a message can be received; throws when none comes.
void awaitMessage(Socket& socket);

/// Messages are told apart by a number.
proto::EngineFrontEndRequest numbered(std::uint32_t number);
void sendNumber(Socket& socket, std::uint32_t number);
/// Waits for one; throws when none comes or its content is not as it was sent.
std::uint32_t receiveNumber(Socket& socket);
/// Receives the numbers from `first` to `last`, in order and without a gap.
void expectNumbers(Socket& socket, std::uint32_t first, std::uint32_t last);

/// A reply that carries a number.
void sendReply(Socket& replier, std::uint32_t number);
/// Waits for one without a poll; throws when its content is not as it was sent.
std::uint32_t receiveReply(Socket& requester);
/// Receives one request and sends its number back.
void answerOne(Socket& replier);

/// A reply whose encoding has exactly that many bytes.
proto::EngineBackEndReply replyOfSize(std::size_t size);

}  // namespace qor::test
