#include "qor/socket/SocketEndpoint.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "runtime/base/Utf8.h"
#include "runtime/messaging/SocketLabel.h"
#include "runtime/messaging/TcpListener.h"

namespace qor::socket {

namespace {

constexpr std::string_view tcpScheme = "tcp://";
constexpr std::string_view ipcScheme = "ipc://";
constexpr std::string_view inprocScheme = "inproc://";

/// The capacity of the kernel's socket address, without the terminating zero.
constexpr std::size_t maximumPathLength = sizeof(sockaddr_un::sun_path) - 1;
/// Leaves room in the same address for a suffix that makes a name unique to its process.
constexpr std::size_t maximumNameLength = 64;

/// The text in quotes, on one line and cut to a bounded length, whatever it contains.
std::string quoted(std::string_view text) {
  constexpr std::size_t maximumShown = 200;
  const std::string_view shown = base::cutUtf8(text, maximumShown);
  return fmt::format("{:?}{}", shown, shown.size() < text.size() ? "…" : "");
}

[[noreturn]] void refuse(std::string_view text, std::string_view reason) {
  throw std::runtime_error(
      fmt::format("invalid endpoint {}: {}; expected tcp://HOST:PORT (IPv6 in brackets), ipc://PATH or "
                  "inproc://NAME, optionally followed by ?readers=NUMBER",
                  quoted(text), reason));
}

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

/// Empty if the digits are not a number from 0 to 65535.
std::optional<std::uint16_t> parseNumber(std::string_view digits) {
  std::uint16_t number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stopped, error] = std::from_chars(digits.data(), end, number);
  if (digits.empty() || error != std::errc() || stopped != end) return std::nullopt;
  return number;
}

std::uint16_t readPort(std::string_view text, std::string_view digits) {
  const auto port = parseNumber(digits);
  if (!port) refuse(text, "the port is not a number from 0 to 65535");
  return *port;
}

/// The values of the parameters that follow the '?'.
struct Parameters {
  std::optional<std::uint16_t> readers;
};

void readParameter(std::string_view text, std::string_view parameter, Parameters& parameters) {
  const auto equals = parameter.find('=');
  if (equals == std::string_view::npos) {
    refuse(text, "the part after '?' is not a list of parameters such as name=value&name=value");
  }
  // Rejects unknown parameters: peers get the same text, and ignoring one might serve a peer that another end
  // keeps out.
  if (parameter.substr(0, equals) != "readers") refuse(text, "it has an unknown parameter");
  if (parameters.readers) refuse(text, "the parameter readers is given twice");
  const auto readers = parseNumber(parameter.substr(equals + 1));
  if (!readers || *readers == 0) refuse(text, "readers is not a number from 1 to 65535");
  parameters.readers = readers;
}

Parameters readParameters(std::string_view text, std::string_view list) {
  Parameters parameters;
  for (;;) {
    const auto end = list.find('&');
    readParameter(text, list.substr(0, end), parameters);
    if (end == std::string_view::npos) return parameters;
    list.remove_prefix(end + 1);
  }
}

/// The shortest form of an IPv6 address; empty if the text is not one.
std::optional<std::string> canonicalIpv6(std::string_view host) {
  in6_addr address{};
  std::array<char, INET6_ADDRSTRLEN> buffer{};
  if (::inet_pton(AF_INET6, std::string(host).c_str(), &address) != 1 ||
      ::inet_ntop(AF_INET6, &address, buffer.data(), buffer.size()) == nullptr) {
    return std::nullopt;
  }
  return std::string(buffer.data());
}

bool isHostName(std::string_view host) {
  const auto allowed = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '-' || c == '_';
  };
  return !host.empty() && host.front() != '-' && host.front() != '.' &&
         std::all_of(host.begin(), host.end(), allowed);
}

bool isNumeric(std::string_view host) { return host.find_first_not_of("0123456789.") == std::string::npos; }

std::string readHost(std::string_view text, std::string_view host) {
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
    auto address = canonicalIpv6(host.substr(1, host.size() - 2));
    if (!address) refuse(text, "the text in brackets is not an IPv6 address");
    return *std::move(address);
  }
  if (!isHostName(host)) refuse(text, "the host is neither a name nor an address");
  in_addr address{};
  if (isNumeric(host) && ::inet_pton(AF_INET, std::string(host).c_str(), &address) != 1) {
    refuse(text, "the host is not an IPv4 address");
  }
  return std::string(host);
}

std::string readName(std::string_view text, std::string_view name, std::string_view what,
                     std::size_t maximumLength) {
  if (name.empty() || name == "@") refuse(text, fmt::format("the {} is empty", what));
  if (name.size() > maximumLength) {
    refuse(text, fmt::format("the {} has {} bytes, the limit is {}", what, name.size(), maximumLength));
  }
  if (std::any_of(name.begin(), name.end(), isControl)) {
    refuse(text, fmt::format("the {} holds a control character", what));
  }
  return std::string(name);
}

}  // namespace

SocketEndpoint::SocketEndpoint(Transport transport, std::string host, std::uint16_t port)
    : transport_(transport), host_(std::move(host)), port_(port) {}

SocketEndpoint SocketEndpoint::FromString(const std::string& text) {
  const std::string_view all = text;
  const auto mark = all.find('?');
  SocketEndpoint endpoint = parseAddress(all, all.substr(0, mark));
  if (mark == std::string_view::npos) return endpoint;
  endpoint.readers_ = readParameters(all, all.substr(mark + 1)).readers.value_or(0);
  return endpoint;
}

/// `text` is quoted in refusals, including the parameters.
SocketEndpoint SocketEndpoint::parseAddress(std::string_view text, std::string_view address) {
  if (address.starts_with(ipcScheme)) {
    return {Transport::Ipc, readName(text, address.substr(ipcScheme.size()), "path", maximumPathLength), 0};
  }
  if (address.starts_with(inprocScheme)) {
    return {Transport::Inproc, readName(text, address.substr(inprocScheme.size()), "name", maximumNameLength),
            0};
  }
  if (!address.starts_with(tcpScheme)) refuse(text, "unknown transport");
  address.remove_prefix(tcpScheme.size());
  const auto colon = address.rfind(':');
  if (colon == std::string_view::npos || address.back() == ']') refuse(text, "the port is missing");
  return {Transport::Tcp, readHost(text, address.substr(0, colon)),
          readPort(text, address.substr(colon + 1))};
}

std::string SocketEndpoint::toString(Protocol::Protocol protocol) const {
  const std::string parameters = readers_ == 0 ? "" : fmt::format("?readers={}", readers_);
  const std::string suffix = protocol == Protocol::Plain ? "" : " as " + roleName(protocol);
  return address() + parameters + suffix;
}

std::string SocketEndpoint::address() const {
  switch (transport_) {
    case Transport::Tcp: {
      const bool isIpv6 = host_.find(':') != std::string::npos;
      return fmt::format("{}{}:{}", tcpScheme, isIpv6 ? '[' + host_ + ']' : host_, port_);
    }
    case Transport::Ipc:
      return fmt::format("{}{}", ipcScheme, host_);
    case Transport::Inproc:
      return fmt::format("{}{}", inprocScheme, host_);
  }
  throw std::logic_error("SocketEndpoint: unknown transport");
}

SocketEndpoint SocketEndpoint::withReservedPort() const {
  if (transport_ != Transport::Tcp || port_ != 0) return *this;
  base::FileDescriptor listener = listenOnTcp(host_, 0);
  SocketEndpoint reserved(transport_, host_, portOf(listener));
  reserved.readers_ = readers_;
  reserved.reservation_ = std::make_shared<Reservation>(std::move(listener));
  return reserved;
}

bool operator==(const SocketEndpoint& left, const SocketEndpoint& right) {
  return left.transport_ == right.transport_ && left.host_ == right.host_ && left.port_ == right.port_ &&
         left.readers_ == right.readers_;
}

}  // namespace qor::socket
