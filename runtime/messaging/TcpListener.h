#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "qor/socket/SocketEndpoint.h"
#include "runtime/base/FileDescriptor.h"
#include "runtime/base/Mutex.h"

namespace qor::socket {

/// Another socket already listens on the address.
class AddressInUse : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A non-blocking descriptor that listens on the address; port 0 means any free one. Throws AddressInUse or
/// another std::runtime_error, with the address and the system's reason.
base::FileDescriptor listenOnTcp(const std::string& host, std::uint16_t port);

/// The length of the accept queue: more connections than any host opens at once.
constexpr int listenBacklog = 1'024;

/// The port of a listening descriptor.
std::uint16_t portOf(const base::FileDescriptor& listener);

/// Shared by the copies of one endpoint.
class SocketEndpoint::Reservation {
 public:
  explicit Reservation(base::FileDescriptor listener) : listener_(std::move(listener)) {}

  /// The listening descriptor; only the first call gets it, later ones get an empty one. Any thread.
  base::FileDescriptor take() {
    const base::Lock lock(mutex_);
    return std::move(listener_);
  }

 private:
  base::Mutex mutex_;
  base::FileDescriptor listener_ QOR_GUARDED_BY(mutex_);
};

}  // namespace qor::socket
