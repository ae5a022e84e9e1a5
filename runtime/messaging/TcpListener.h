#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "qor/socket/SocketEndpoint.h"
#include "runtime/base/FileDescriptor.h"
#include "runtime/base/Mutex.h"

namespace qor::socket {

/// Somebody listens on the address already.
class AddressInUse : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A non-blocking descriptor that listens on the address; port 0 means any free one. Throws AddressInUse, or
/// another std::runtime_error, that names the address and the system's reason.
base::FileDescriptor listenOnTcp(const std::string& host, std::uint16_t port);

/// The connections that may wait to be accepted: more than any host opens at once.
constexpr int listenBacklog = 1'024;

/// The port that a listening descriptor got.
std::uint16_t portOf(const base::FileDescriptor& listener);

/// Shared by the copies of one endpoint.
class SocketEndpoint::Reservation {
 public:
  explicit Reservation(base::FileDescriptor listener) : listener_(std::move(listener)) {}

  /// The listening descriptor; empty for everyone but the first to take it. Any thread.
  base::FileDescriptor take() {
    const base::Lock lock(mutex_);
    return std::move(listener_);
  }

 private:
  base::Mutex mutex_;
  base::FileDescriptor listener_ QOR_GUARDED_BY(mutex_);
};

}  // namespace qor::socket
