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
/// socket file; `ipc://@NAME` names none) and `inproc://NAME` (within this process). Each may be followed by
/// parameters, `?name=value&…`; hence no path and no name holds a '?'. There is one parameter, `readers`,
/// from 1 to 65535: how many subscribers a Publisher that binds the endpoint serves at a time.
class SocketEndpoint {
 public:
  enum class Transport { Tcp, Ipc, Inproc };

  /// Reads the text form; throws std::runtime_error quoting `text` and saying what is expected.
  static SocketEndpoint FromString(const std::string& text);

  SocketEndpoint(const SocketEndpoint&) = default;
  SocketEndpoint(SocketEndpoint&&) = default;
  SocketEndpoint& operator=(const SocketEndpoint&) = default;
  SocketEndpoint& operator=(SocketEndpoint&&) = default;
  virtual ~SocketEndpoint() = default;

  /// The text form, parameters included, for `Plain`; for a role, the same followed by " as " and the role's
  /// name.
  std::string toString(Protocol::Protocol protocol) const;
  /// The text form without parameters: where peers meet, whatever each of them was told besides.
  std::string address() const;

  Transport transport() const { return transport_; }
  /// The host without brackets; for ipc the path, for inproc the name.
  const std::string& host() const { return host_; }
  /// 0 unless the transport is tcp.
  std::uint16_t port() const { return port_; }
  /// How many subscribers a publisher serves at a time; 0 for any number.
  std::uint16_t readers() const { return readers_; }

  /// This address with port 0 replaced by a free port that is held, listening, from now on, so that it can be
  /// told to a peer before the socket is opened. The first binding createAndConnect with the result or a copy
  /// takes the port over; it is let go with the last copy otherwise. An address that names its port, and any
  /// that is not tcp, is returned unchanged. Throws std::runtime_error when no port can be had on the host.
  SocketEndpoint withReservedPort() const;

  /// A held port: a listening descriptor with one owner.
  class Reservation;
  /// The reservation behind this address; empty when there is none.
  const std::shared_ptr<Reservation>& reservation() const { return reservation_; }

  /// Same address and parameters; a reservation makes no difference.
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
