// Peers that connect to a process without a free descriptor. libzmq alone would abort it, or keep a processor
// busy until a descriptor is free.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "TcpEngine.pb.h"
#include "qor/socket/Socket.h"
#include "runtime/base/FileDescriptor.h"
#include "runtime/zmq/ConcurrentReplier.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/Eventually.h"
#include "tests/support/NoDescriptorsLeft.h"
#include "tests/support/TemporaryDirectory.h"

namespace qor::socket {
namespace {

namespace proto = multiprocess_communication::proto;

constexpr std::chrono::seconds patience{20};
constexpr unsigned int sizeBound = 65'536;

std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// A bare connection, whose descriptor is opened before it connects.
class Peer {
 public:
  explicit Peer(const SocketEndpoint& endpoint) {
    if (endpoint.transport() == SocketEndpoint::Transport::Ipc) {
      auto& local = as<sockaddr_un>();
      local.sun_family = AF_UNIX;
      endpoint.host().copy(local.sun_path, sizeof local.sun_path - 1);
      size_ = sizeof local;
    } else {
      auto& internet = as<sockaddr_in>();
      internet.sin_family = AF_INET;
      internet.sin_port = htons(endpoint.port());
      internet.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      size_ = sizeof internet;
    }
    descriptor_ = base::FileDescriptor(::socket(address_.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!descriptor_.isOpen()) throw std::system_error(errno, std::generic_category(), "no peer");
  }

  void connect() {
    if (::connect(descriptor_.get(), &as<sockaddr>(), size_) != 0) {
      throw std::system_error(errno, std::generic_category(), "cannot connect");
    }
  }

  enum class Met { Greeting, End, Nothing };
  /// What the listener does first.
  Met whatComes(std::chrono::milliseconds time = patience) {
    pollfd watched{.fd = descriptor_.get(), .events = POLLIN, .revents = 0};
    if (::poll(&watched, 1, static_cast<int>(time.count())) != 1) return Met::Nothing;
    char byte = 0;
    return ::recv(descriptor_.get(), &byte, sizeof byte, 0) == sizeof byte ? Met::Greeting : Met::End;
  }

 private:
  template <class Address>
  Address& as() {
    return reinterpret_cast<Address&>(address_);
  }

  sockaddr_storage address_{};
  socklen_t size_ = 0;
  base::FileDescriptor descriptor_;
};

class AProcessWithoutDescriptors : public ::testing::TestWithParam<std::string> {
 protected:
  AProcessWithoutDescriptors() {
    requester_.createAndConnect(Protocol::Requester, endpoint_, milliseconds(patience));
  }

  void SetUp() override {
    if (test::sanitizerNeedsDescriptors) GTEST_SKIP() << "UBSan needs descriptors of its own";
  }

  static unsigned int milliseconds(std::chrono::milliseconds time) {
    return static_cast<unsigned int>(time.count());
  }

  /// The connection made at the start still works.
  void exchange() {
    proto::EngineFrontEndRequest request;
    request.set_type(proto::EngineFrontEndRequest::Ping);
    requester_.sendProtoBuf(&request);
    proto::EngineFrontEndRequest received;
    auto taken = replier_.receive(patience, received, sizeBound);
    ASSERT_TRUE(taken.has_value());
    proto::EngineBackEndReply reply;
    reply.set_type(proto::EngineBackEndReply::Success);
    replier_.answer(std::move(*taken), reply);
    ASSERT_EQ(requester_.receiveProtoBuf(&reply, sizeBound), 0);
  }

  std::vector<Peer> manyPeers() const {
    std::vector<Peer> peers;
    for (int i = 0; i < 50; ++i) peers.emplace_back(endpoint_);
    return peers;
  }

  void expectRefused(std::vector<Peer>& peers, test::NoDescriptorsLeft& full) {
    int accepted = 0;
    for (Peer& peer : peers) {
      peer.connect();
      const Peer::Met met = peer.whatComes();
      ASSERT_NE(met, Peer::Met::Nothing);
      if (met == Peer::Met::Greeting) ++accepted;
      // libzmq closes the first socket of its context on another thread, possibly only now.
      full.takeFreed();
      exchange();
    }
    EXPECT_LE(accepted, 2);
  }

  bool isLogged(const std::string& text) {
    return test::eventually([&] {
      exchange();
      return !log_.recordsWith(text).empty();
    });
  }

  const test::CapturedLog log_;
  const test::TemporaryDirectory directory_;
  const SocketEndpoint endpoint_ =
      SocketEndpoint::FromString(GetParam() == "ipc" ? "ipc://" + (directory_.path() / "replier").string()
                                                     : "tcp://127.0.0.1:0")
          .withReservedPort();
  ConcurrentReplier replier_{"AcceptGuardTest", endpoint_};
  Socket requester_{"AcceptGuardTest", ClosePolicy::Newest};
};

TEST_P(AProcessWithoutDescriptors, RefusesPeersAndServesThemLater) {
  const std::ptrdiff_t before = openDescriptors();
  {
    std::vector<Peer> peers = manyPeers();
    {
      test::NoDescriptorsLeft full;
      expectRefused(peers, full);
      exchange();
      EXPECT_TRUE(isLogged("Too many open files (this process may open "));
    }
    Peer late(endpoint_);
    late.connect();
    EXPECT_EQ(late.whatComes(), Peer::Met::Greeting);
    exchange();
  }
  EXPECT_TRUE(test::eventually([&] { return openDescriptors() <= before; }));
}

TEST_P(AProcessWithoutDescriptors, LogsOneLineInTenSecondsAtMost) {
  const auto start = std::chrono::steady_clock::now();
  std::vector<Peer> peers = manyPeers();
  test::NoDescriptorsLeft full;
  expectRefused(peers, full);
  if (std::chrono::steady_clock::now() - start < std::chrono::seconds(10)) {
    EXPECT_LE(log_.recordsWith("refused ").size(), 1U);
  }
}

/// The number of the reserved descriptor is above the limit then.
TEST_P(AProcessWithoutDescriptors, LetsPeersWaitBelowALimitThatWasLowered) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  std::vector<Peer> peers;
  for (int i = 0; i < 3; ++i) peers.emplace_back(endpoint_);
  const rlimit few{.rlim_cur = STDERR_FILENO + 1, .rlim_max = before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  for (Peer& peer : peers) peer.connect();
  for (int i = 0; i < 20; ++i) exchange();
  const auto met = peers.front().whatComes(std::chrono::milliseconds(0));
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(met, Peer::Met::Nothing);
  for (Peer& peer : peers) EXPECT_EQ(peer.whatComes(), Peer::Met::Greeting);
}

INSTANTIATE_TEST_SUITE_P(Over, AProcessWithoutDescriptors, ::testing::Values("ipc", "tcp"),
                         [](const auto& instance) { return instance.param; });

}  // namespace
}  // namespace qor::socket
