#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "qor/socket/Protocol.h"

namespace qor::socket {

/// A transport address: a value, safe to copy between threads.
///
/// Text forms: `tcp://HOST:PORT` (a name, an IPv4 address, or an IPv6 address in brackets), `ipc://PATH` (a
/// socket file; `ipc://@NAME` creates no file) and `inproc://NAME` (within this process). Each may be
/// followed by parameters, `?name=value&…`; therefore paths and names cannot contain a '?'. The only
/// parameter is `readers`, from 1 to 65535: how many subscribers a Publisher that binds the endpoint serves
/// at a time.
class SocketEndpoint {
 public:
  enum class Transport { Tcp, Ipc, Inproc };

  /// Parses the text form; throws std::runtime_error that quotes `text` and states what was expected.
  static SocketEndpoint FromString(const std::string& text);

  SocketEndpoint(const SocketEndpoint&) = default;
  SocketEndpoint(SocketEndpoint&&) = default;
  SocketEndpoint& operator=(const SocketEndpoint&) = default;
  SocketEndpoint& operator=(SocketEndpoint&&) = default;
  virtual ~SocketEndpoint() = default;

  /// The text form, parameters included, for `Plain`; for a role, the same followed by " as " and the role's
  /// name.
  std::string toString(Protocol::Protocol protocol) const;
  /// The text form without parameters. Peers with equal results reach each other, whatever their parameters.
  std::string address() const;

  Transport transport() const { return transport_; }
  /// The host without brackets; for ipc the path, for inproc the name.
  const std::string& host() const { return host_; }
  /// 0 unless the transport is tcp.
  std::uint16_t port() const { return port_; }
  /// How many subscribers a publisher serves at a time; 0 means no limit.
  std::uint16_t readers() const { return readers_; }

  /// This address with port 0 replaced by a free port, which is reserved from now on by a listening
  /// descriptor, so that it can be passed to a peer before the socket is opened. The first binding
  /// createAndConnect with the result or a copy takes the port over; otherwise the last copy releases it. An
  /// address with a port other than 0, or with another transport, is returned unchanged. Throws
  /// std::runtime_error if no port is available on the host.
  SocketEndpoint withReservedPort() const;

  /// A reserved port: a listening descriptor with one owner.
  class Reservation;
  /// The reservation of this address; empty if there is none.
  const std::shared_ptr<Reservation>& reservation() const { return reservation_; }

  /// Whether address and parameters are equal; ignores reservations.
  friend bool operator==(const SocketEndpoint& left, const SocketEndpoint& right);

 private:
  SocketEndpoint(Transport transport, std::string host, std::uint16_t port);
  static SocketEndpoint parseAddress(std::string_view text, std::string_view address);

  Transport transport_;
  std::string host_;
  std::uint16_t port_;
  std::uint16_t readers_ = 0;
  std::shared_ptr<Reservation> reservation_;
};

}  // namespace qor::socket
