#pragma once

#include <string>
#include <utility>

#include "qor/socket/SocketEndpoint.h"
#include "runtime/inproc/InprocSocket.h"
#include "runtime/messaging/TcpListener.h"

namespace qor::socket::inproc {

/// A socket that binds. It keeps a port that was reserved for it while it is open, so that the port is not
/// given to another socket of this process.
class BindingSocket : public InprocSocket {
 public:
  BindingSocket(const SocketLabel& label, const SocketEndpoint& endpoint)
      : InprocSocket(label), endpoint_(endpoint.withReservedPort()), key_(endpoint_.address()) {}

  const std::string& endpoint() const final { return key_; }

 private:
  void enter(base::Lock& /*lock*/, std::chrono::milliseconds /*timeOut*/) QOR_REQUIRES(networkMutex) final {
    network().bind(*this, key_);
    if (endpoint_.reservation()) port_ = endpoint_.reservation()->take();
  }

  const SocketEndpoint endpoint_;
  const std::string key_;
  base::FileDescriptor port_ QOR_GUARDED_BY(networkMutex);
};

}  // namespace qor::socket::inproc
