#include "runtime/messaging/TcpListener.h"

#include <fmt/format.h>
#include <netdb.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace qor::socket {

namespace {

std::string cannotListen(const std::string& host, std::uint16_t port, const std::string& reason) {
  return fmt::format("cannot listen on port {} of {}: {}", port, host, reason);
}

std::string systemReason() { return std::generic_category().message(errno); }

}  // namespace

base::FileDescriptor listenOnTcp(const std::string& host, std::uint16_t port) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  // A name may have addresses of both families; connecting peers prefer the IPv4 address.
  hints.ai_family = host.find(':') == std::string::npos ? AF_INET : AF_INET6;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  if (const int error = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
      error != 0) {
    throw std::runtime_error(cannotListen(host, port, ::gai_strerror(error)));
  }
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> address(found, &::freeaddrinfo);

  base::FileDescriptor listener(
      ::socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, address->ai_protocol));
  // Without SO_REUSEADDR the port could not be bound again until the connections of its last owner have timed
  // out.
  const int on = 1;
  if (!listener.isOpen() || ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      ::bind(listener.get(), address->ai_addr, address->ai_addrlen) != 0 ||
      ::listen(listener.get(), listenBacklog) != 0) {
    if (errno == EADDRINUSE) throw AddressInUse(cannotListen(host, port, systemReason()));
    throw std::runtime_error(cannotListen(host, port, systemReason()));
  }
  return listener;
}

std::uint16_t portOf(const base::FileDescriptor& listener) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  std::array<char, NI_MAXSERV> service{};
  // The sockets API requires these casts for addresses of any family.
  auto* any = reinterpret_cast<sockaddr*>(&address);
  if (::getsockname(listener.get(), any, &size) != 0) throw std::runtime_error(systemReason());
  if (const int error = ::getnameinfo(any, size, nullptr, 0, service.data(), service.size(), NI_NUMERICSERV);
      error != 0) {
    throw std::runtime_error(::gai_strerror(error));
  }
  return static_cast<std::uint16_t>(std::stoul(service.data()));
}

}  // namespace qor::socket
