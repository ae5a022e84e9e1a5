#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "qor/socket/SocketEndpoint.h"
#include "runtime/messaging/TcpListener.h"

namespace qor::socket {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

SocketEndpoint anyPort() { return SocketEndpoint::FromString("tcp://127.0.0.1:0"); }

bool canConnectTo(std::uint16_t port) {
  const base::FileDescriptor client(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  // The sockets API requires this cast for addresses of any family.
  return ::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

TEST(ReservedPort, IsKnownBeforeAnySocketIsOpened) {
  const SocketEndpoint reserved = anyPort().withReservedPort();
  EXPECT_NE(reserved.port(), 0);
  EXPECT_EQ(reserved.host(), "127.0.0.1");
  EXPECT_EQ(reserved.toString(Protocol::Plain), "tcp://127.0.0.1:" + std::to_string(reserved.port()));
}

TEST(ReservedPort, IsListenedOnFromThenOn) {
  const SocketEndpoint reserved = anyPort().withReservedPort();
  EXPECT_TRUE(canConnectTo(reserved.port()));
}

TEST(ReservedPort, IsHeldAgainstEveryoneElse) {
  const SocketEndpoint reserved = anyPort().withReservedPort();
  EXPECT_THAT([&] { listenOnTcp("127.0.0.1", reserved.port()); },
              ThrowsMessage<std::runtime_error>(
                  AllOf(HasSubstr("127.0.0.1"), HasSubstr(std::to_string(reserved.port())))));
  EXPECT_NE(anyPort().withReservedPort().port(), reserved.port());
}

TEST(ReservedPort, IsLetGoWithTheLastCopy) {
  std::optional<SocketEndpoint> first = anyPort().withReservedPort();
  std::optional<SocketEndpoint> copy = first;
  const std::uint16_t port = first->port();
  first.reset();
  EXPECT_TRUE(canConnectTo(port));
  copy.reset();
  EXPECT_FALSE(canConnectTo(port));
  EXPECT_EQ(portOf(listenOnTcp("127.0.0.1", port)), port);
}

TEST(ReservedPort, IsTakenOverOnceByWhicheverCopyIsFirst) {
  const std::vector<SocketEndpoint> copies(3, anyPort().withReservedPort());
  const base::FileDescriptor taken = copies[1].reservation()->take();
  ASSERT_TRUE(taken.isOpen());
  EXPECT_EQ(portOf(taken), copies[0].port());
  for (const SocketEndpoint& copy : copies) EXPECT_FALSE(copy.reservation()->take().isOpen());
}

TEST(ReservedPort, IsTakenOverOnceByManyThreads) {
  const SocketEndpoint reserved = anyPort().withReservedPort();
  std::atomic<int> taken = 0;
  {
    std::vector<std::jthread> threads;
    threads.reserve(8);
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&taken, endpoint = reserved] {
        if (endpoint.reservation()->take().isOpen()) ++taken;
      });
    }
  }
  EXPECT_EQ(taken, 1);
}

TEST(ReservedPort, MakesNoDifferenceBetweenEndpoints) {
  const SocketEndpoint reserved = anyPort().withReservedPort();
  EXPECT_TRUE(reserved == SocketEndpoint::FromString(reserved.toString(Protocol::Plain)));
}

TEST(ReservedPort, IsNotReservedAgain) {
  const SocketEndpoint reserved = anyPort().withReservedPort();
  EXPECT_EQ(reserved.withReservedPort().reservation(), reserved.reservation());
}

TEST(ReservedPort, IsNotMadeForNamedPortsAndOtherTransports) {
  for (const char* text : {"tcp://127.0.0.1:5555", "ipc:///some/path", "inproc://name"}) {
    const SocketEndpoint endpoint = SocketEndpoint::FromString(text).withReservedPort();
    EXPECT_EQ(endpoint.toString(Protocol::Plain), text);
    EXPECT_EQ(endpoint.reservation(), nullptr);
  }
}

TEST(ReservedPort, IsRefusedOnAForeignHost) {
  // An address for documentation, which no machine has.
  EXPECT_THAT([] { SocketEndpoint::FromString("tcp://192.0.2.1:0").withReservedPort(); },
              ThrowsMessage<std::runtime_error>(HasSubstr("192.0.2.1")));
}

TEST(ReservedPort, MayBeOneOfIpv6) {
  const base::FileDescriptor available(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in6 loopback{};
  loopback.sin6_family = AF_INET6;
  loopback.sin6_addr = in6addr_loopback;
  // The sockets API requires this cast for addresses of any family.
  if (::bind(available.get(), reinterpret_cast<const sockaddr*>(&loopback), sizeof loopback) != 0) {
    // A machine without IPv6 cannot reserve such a port, and reports that.
    EXPECT_THAT([] { SocketEndpoint::FromString("tcp://[::1]:0").withReservedPort(); },
                ThrowsMessage<std::runtime_error>(HasSubstr("::1")));
    return;
  }
  const SocketEndpoint reserved = SocketEndpoint::FromString("tcp://[::1]:0").withReservedPort();
  EXPECT_EQ(reserved.toString(Protocol::Plain), "tcp://[::1]:" + std::to_string(reserved.port()));
  EXPECT_NE(reserved.port(), 0);
}

}  // namespace
}  // namespace qor::socket
