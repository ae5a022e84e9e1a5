#include "runtime/messaging/SocketFactory.h"

#include <atomic>
#include <stdexcept>

#include "qor/socket/Socket.h"

namespace qor::socket {

namespace {

/// Initialised before any code runs: a library installs its factory while it is being loaded.
constinit std::atomic<SocketFactory*> installed = nullptr;

}  // namespace

void installSocketFactory(SocketFactory& factory) noexcept { installed = &factory; }

SocketFactory& installedSocketFactory() {
  SocketFactory* const factory = installed;
  if (factory == nullptr) throw std::logic_error("no implementation of the message sockets is installed");
  return *factory;
}

void shutDownContext() { installedSocketFactory().shutDownContext(); }

}  // namespace qor::socket
