#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

#include "runtime/base/FileDescriptor.h"
#include "runtime/processes/SocketFiles.h"
#include "tests/support/TemporaryDirectory.h"

namespace qor::processes {
namespace {

namespace fs = std::filesystem;
using base::FileDescriptor;
using socket::SocketEndpoint;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

/// Listens on a path until it is closed, and leaves the file behind.
FileDescriptor listenOn(const fs::path& path) {
  FileDescriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.string().copy(address.sun_path, sizeof address.sun_path - 1);
  if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener.get(), 1) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot listen on " + path.string());
  }
  return listener;
}

SocketEndpoint endpointOf(const fs::path& path) {
  return SocketEndpoint::FromString("ipc://" + path.string());
}

class SocketFilesTest : public ::testing::Test {
 protected:
  const test::TemporaryDirectory parent_;
  const fs::path directory_ = parent_.path() / "sockets";
  const fs::path file_ = directory_ / "one";
  /// Leads to the same file.
  const fs::path respelled_ = directory_ / "." / "one";

 private:
  const bool isMade_ = fs::create_directory(directory_);
};

TEST_F(SocketFilesTest, AreRemovedWithoutAListener) {
  listenOn(file_).close();
  removeSocketFiles({endpointOf(file_)}, {});
  EXPECT_FALSE(fs::exists(file_));
  EXPECT_TRUE(fs::exists(directory_));
}

TEST_F(SocketFilesTest, AreKeptWithAListenerHoweverThePathIsWritten) {
  const FileDescriptor listener = listenOn(file_);
  removeSocketFiles({endpointOf(file_), endpointOf(respelled_), endpointOf(fs::relative(file_))}, {});
  EXPECT_TRUE(fs::exists(file_));
}

TEST_F(SocketFilesTest, AreSparedInADirectoryThatMayBeOthers) {
  const FileDescriptor listener = listenOn(file_);
  listenOn(directory_ / "two").close();
  removeSocketFiles({endpointOf(file_), endpointOf(directory_ / "two")}, directory_, BoundBy::Anybody);
  EXPECT_TRUE(fs::exists(file_));
  EXPECT_FALSE(fs::exists(directory_ / "two"));
}

TEST_F(SocketFilesTest, AreRemovedWithOurDirectoryInAnyCase) {
  const FileDescriptor listener = listenOn(file_);
  removeSocketFiles({endpointOf(file_)}, directory_);
  EXPECT_FALSE(fs::exists(directory_));
}

TEST_F(SocketFilesTest, AreInUseWhileTheyHaveAListener) {
  FileDescriptor listener = listenOn(file_);
  const auto require = [this] {
    requireNobodyListens({endpointOf(directory_ / "none"), endpointOf(respelled_)});
  };
  EXPECT_THAT(require, ThrowsMessage<std::runtime_error>(HasSubstr("/./one: it is in use")));
  listener.close();
  EXPECT_NO_THROW(require());
}

TEST_F(SocketFilesTest, DoNotExistForATcpEndpoint) {
  removeSocketFiles({SocketEndpoint::FromString("tcp://127.0.0.1:1")}, directory_);
  EXPECT_FALSE(fs::exists(directory_));
}

}  // namespace
}  // namespace qor::processes
