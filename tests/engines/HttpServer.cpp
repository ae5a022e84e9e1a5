#include "tests/engines/HttpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace qor::engines::test {

namespace {

/// Longer than any test takes on a busy machine; a client that stands still does not hold the test's end up
/// longer.
constexpr int longestWaitMilliseconds = 20'000;

std::string header(std::size_t length) {
  return "HTTP/1.0 200 OK\r\nContent-Length: " + std::to_string(length) + "\r\nConnection: close\r\n\r\n";
}

}  // namespace

HttpServer::HttpServer(std::string body, std::size_t announced)
    : answer_(header(announced) + std::move(body)),
      listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (listener_ < 0 || ::bind(listener_, generic, size) != 0 || ::listen(listener_, SOMAXCONN) != 0 ||
      ::getsockname(listener_, generic, &size) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot listen");
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { serve(); });
}

HttpServer::~HttpServer() {
  ::shutdown(listener_, SHUT_RDWR);  // It ends the wait for the next client.
  thread_.join();
  ::close(listener_);
}

std::string HttpServer::url(const std::string& name) const {
  return "http://127.0.0.1:" + std::to_string(port_) + "/" + name;
}

void HttpServer::serve() const {
  for (;;) {
    const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) return;
    answer(connection);
    ::close(connection);
  }
}

void HttpServer::answer(int connection) const {
  const timeval limit{longestWaitMilliseconds / 1'000, 0};
  ::setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  ::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  std::string request;
  std::array<char, 4096> part{};
  while (request.find("\r\n\r\n") == std::string::npos) {
    const auto count = ::recv(connection, part.data(), part.size(), 0);
    if (count <= 0) return;
    request.append(part.data(), static_cast<std::size_t>(count));
  }
  for (std::size_t sent = 0; sent < answer_.size();) {
    const auto count = ::send(connection, answer_.data() + sent, answer_.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return;
    sent += static_cast<std::size_t>(count);
  }
  ::shutdown(connection, SHUT_WR);
  while (::recv(connection, part.data(), part.size(), 0) > 0) {
  }  // To its end: closed before, the connection would be reset, with bytes under way.
}

}  // namespace qor::engines::test
