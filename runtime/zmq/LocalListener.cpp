#include "runtime/zmq/LocalListener.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <system_error>

#include "runtime/messaging/TcpListener.h"

namespace qor::socket {

namespace {

std::string cannotListen(const std::string& path, const std::string& reason) {
  return fmt::format("cannot listen on {}: {}", path, reason);
}

std::string systemReason() { return std::generic_category().message(errno); }

/// The socket address of a path, as the sockets API requires it.
class LocalAddress {
 public:
  explicit LocalAddress(const std::string& path) {
    address_.sun_family = AF_UNIX;
    path.copy(address_.sun_path, sizeof address_.sun_path - 1);
    const bool isFile = path.front() != '@';
    if (!isFile) address_.sun_path[0] = '\0';
    size_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + (isFile ? 1 : 0));
  }
  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address_); }
  socklen_t size() const { return size_; }

 private:
  sockaddr_un address_{};
  socklen_t size_;
};

base::FileDescriptor makeSocket(const std::string& path) {
  base::FileDescriptor descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!descriptor.isOpen()) throw std::runtime_error(cannotListen(path, systemReason()));
  return descriptor;
}

/// Whether the path is a socket file without a listener.
bool isLeftBehind(const std::string& path, const LocalAddress& address) {
  struct stat file {};
  if (path.front() == '@' || ::lstat(path.c_str(), &file) != 0 || !S_ISSOCK(file.st_mode)) return false;
  const base::FileDescriptor probe = makeSocket(path);
  return ::connect(probe.get(), address.get(), address.size()) != 0 && errno == ECONNREFUSED;
}

}  // namespace

base::FileDescriptor listenOnLocal(const std::string& path) {
  const LocalAddress address(path);
  base::FileDescriptor listener = makeSocket(path);
  int bound = ::bind(listener.get(), address.get(), address.size());
  if (bound != 0 && errno == EADDRINUSE) {
    if (!isLeftBehind(path, address)) throw AddressInUse(cannotListen(path, "it is in use"));
    ::unlink(path.c_str());
    bound = ::bind(listener.get(), address.get(), address.size());
  }
  if (bound != 0 || ::listen(listener.get(), listenBacklog) != 0) {
    throw std::runtime_error(cannotListen(path, systemReason()));
  }
  return listener;
}

}  // namespace qor::socket
