#include "runtime/zmq/AcceptedConnections.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace qor::socket {

namespace {

/// The sockets API itself requires such casts for addresses of any family.
template <class Address>
const Address& as(const sockaddr_storage& address) {
  return reinterpret_cast<const Address&>(address);
}

/// A wildcard matches every address of this machine.
bool isSameOrWildcard(const sockaddr_in& listener, const sockaddr_in& connection) {
  return listener.sin_port == connection.sin_port && (listener.sin_addr.s_addr == htonl(INADDR_ANY) ||
                                                      listener.sin_addr.s_addr == connection.sin_addr.s_addr);
}

bool isSameOrWildcard(const sockaddr_in6& listener, const sockaddr_in6& connection) {
  const auto isSame = [&](const in6_addr& other) {
    return std::memcmp(&listener.sin6_addr, &other, sizeof other) == 0;
  };
  return listener.sin6_port == connection.sin6_port && (isSame(in6addr_any) || isSame(connection.sin6_addr));
}

bool isConnectionAt(int descriptor, const sockaddr_storage& listener, socklen_t listenerSize) noexcept {
  int isListening = 0;
  socklen_t flagSize = sizeof isListening;
  sockaddr_storage local{};
  socklen_t size = sizeof local;
  if (::getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &isListening, &flagSize) != 0 || isListening != 0 ||
      ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &size) != 0 ||
      local.ss_family != listener.ss_family) {
    return false;
  }
  switch (local.ss_family) {
    case AF_INET:
      return isSameOrWildcard(as<sockaddr_in>(listener), as<sockaddr_in>(local));
    case AF_INET6:
      return isSameOrWildcard(as<sockaddr_in6>(listener), as<sockaddr_in6>(local));
    default:
      return size == listenerSize &&
             std::memcmp(&local, &listener, std::min<std::size_t>(size, sizeof local)) == 0;
  }
}

}  // namespace

/// A duplicate of a connection, during the lifetime of this object; false if the given descriptor is not a
/// connection of this address.
class AcceptedConnections::Duplicate {
 public:
  Duplicate(const AcceptedConnections& connections, int descriptor) noexcept
      : place_(connections.place_.get()), nothing_(connections.nothing_.get()) {
    isMade_ = replacePlace(descriptor);
    isConnection_ = isMade_ && isConnectionAt(place_, connections.address_, connections.size_);
  }
  ~Duplicate() {
    // Otherwise the connection would outlive libzmq's own descriptor.
    if (isMade_) replacePlace(nothing_);
  }
  Duplicate(const Duplicate&) = delete;
  Duplicate& operator=(const Duplicate&) = delete;

  explicit operator bool() const { return isConnection_; }
  int get() const { return place_; }

 private:
  bool replacePlace(int descriptor) const noexcept {
    int made = -1;
    do {
      made = ::dup3(descriptor, place_, O_CLOEXEC);
    } while (made < 0 && (errno == EINTR || errno == EBUSY));
    return made >= 0;
  }

  const int place_;
  const int nothing_;
  bool isMade_ = false;
  bool isConnection_ = false;
};

AcceptedConnections::AcceptedConnections(int listener)
    : nothing_(::eventfd(0, EFD_CLOEXEC)), place_(::fcntl(nothing_.get(), F_DUPFD_CLOEXEC, 0)) {
  if (place_.get() < 0) {
    throw std::system_error(errno, std::generic_category(), "cannot monitor the connections of a listener");
  }
  if (::getsockname(listener, reinterpret_cast<sockaddr*>(&address_), &size_) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot read a listening address");
  }
}

void AcceptedConnections::disconnect(int descriptor) noexcept {
  if (const Duplicate ours(*this, descriptor); ours) ::shutdown(ours.get(), SHUT_RDWR);
}

std::string AcceptedConnections::peer(int descriptor) {
  const Duplicate ours(*this, descriptor);
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  if (!ours || ::getpeername(ours.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    return "which has disconnected";
  }
  ucred credentials{};
  socklen_t credentialsSize = sizeof credentials;
  if (address.ss_family == AF_UNIX &&
      ::getsockopt(ours.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &credentialsSize) == 0) {
    return fmt::format("process {}", credentials.pid);
  }
  std::array<char, NI_MAXHOST> host{};
  std::array<char, NI_MAXSERV> port{};
  if (::getnameinfo(reinterpret_cast<sockaddr*>(&address), size, host.data(), host.size(), port.data(),
                    port.size(), NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return "whose address cannot be read";
  }
  return fmt::format("port {} of {}", port.data(), host.data());
}

}  // namespace qor::socket
