#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include "runtime/zmq/AcceptedConnections.h"
#include "tests/support/NoDescriptorsLeft.h"
#include "tests/support/TemporaryDirectory.h"

namespace qor::socket {
namespace {

base::FileDescriptor opened(int descriptor) {
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "cannot open a descriptor");
  return base::FileDescriptor(descriptor);
}

class AcceptedConnectionsTest : public ::testing::Test {
 protected:
  AcceptedConnectionsTest() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    const auto* const bound = reinterpret_cast<const sockaddr*>(&address);
    if (::bind(listener_.get(), bound, sizeof address) != 0 || ::listen(listener_.get(), 1) != 0 ||
        ::connect(peer_.get(), bound, sizeof address) != 0) {
      throw std::system_error(errno, std::generic_category(), "cannot connect to " + path_);
    }
    accepted_.emplace(opened(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)));
    connections_.emplace(listener_.get());
  }

  bool isPeerDisconnected() {
    char byte = 0;
    return ::recv(peer_.get(), &byte, sizeof byte, MSG_DONTWAIT) == 0;
  }

  const test::TemporaryDirectory directory_;
  const std::string path_ = (directory_.path() / "listener").string();
  const base::FileDescriptor listener_ = opened(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const base::FileDescriptor peer_ = opened(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  std::optional<base::FileDescriptor> accepted_;
  std::optional<AcceptedConnections> connections_;
};

TEST_F(AcceptedConnectionsTest, AreDisconnected) {
  EXPECT_FALSE(isPeerDisconnected());
  connections_->disconnect(accepted_->get());
  EXPECT_TRUE(isPeerDisconnected());
}

TEST_F(AcceptedConnectionsTest, AreDisconnectedByAProcessThatHasNoDescriptorsLeft) {
  if (test::sanitizerNeedsDescriptors) GTEST_SKIP() << "UBSan needs descriptors of its own";
  const test::NoDescriptorsLeft full;
  EXPECT_EQ(connections_->peer(accepted_->get()), "process " + std::to_string(::getpid()));
  connections_->disconnect(accepted_->get());
  EXPECT_TRUE(isPeerDisconnected());
}

TEST_F(AcceptedConnectionsTest, AreNotKeptOpen) {
  EXPECT_EQ(connections_->peer(accepted_->get()), "process " + std::to_string(::getpid()));
  accepted_.reset();
  EXPECT_TRUE(isPeerDisconnected());
}

TEST_F(AcceptedConnectionsTest, AreNotConfusedWithOtherUsesOfADescriptor) {
  std::array<int, 2> pair{-1, -1};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
  const base::FileDescriptor other(pair[0]);
  const base::FileDescriptor otherPeer(pair[1]);
  connections_->disconnect(other.get());
  EXPECT_EQ(::send(other.get(), "a", 1, MSG_NOSIGNAL), 1);
  EXPECT_EQ(connections_->peer(other.get()), "which has disconnected");
  connections_->disconnect(listener_.get());
  const int closed = accepted_->get();
  accepted_.reset();
  connections_->disconnect(closed);
  EXPECT_EQ(connections_->peer(closed), "which has disconnected");
}

}  // namespace
}  // namespace qor::socket
