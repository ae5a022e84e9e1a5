#include "runtime/sockets/Context.h"

#include <zmq.h>

#include <cerrno>
#include <mutex>
#include <utility>

#include "qor/socket/Socket.h"
#include "runtime/sockets/ZmqHandles.h"

namespace qor::socket {

namespace {

/// A few per remote engine, for more engines than a machine runs; each costs a pointer.
constexpr int maximumSockets = 8'192;

struct Current {
  std::mutex mutex;
  std::shared_ptr<Context> context;
};

Current& current() {
  static Current instance;
  return instance;
}

}  // namespace

Context::Context() : context_(::zmq_ctx_new()) {
  if (context_ == nullptr) throwZmqError("libzmq", "cannot make a messaging context");
  ::zmq_ctx_set(context_, ZMQ_MAX_SOCKETS, maximumSockets);
}

Context::~Context() {
  // Only a signal interrupts it, and then it is to be called again.
  while (::zmq_ctx_term(context_) != 0 && errno == EINTR) {
  }
}

std::shared_ptr<Context> Context::current() {
  auto& [mutex, context] = socket::current();
  const std::lock_guard lock(mutex);
  if (!context) context = std::make_shared<Context>();
  return context;
}

void Context::shutDownCurrent() {
  auto& [mutex, context] = socket::current();
  std::shared_ptr<Context> ending;
  {
    const std::lock_guard lock(mutex);
    ending = std::exchange(context, nullptr);
  }
  if (!ending) return;
  ending->isShutDown_ = true;
  ::zmq_ctx_shutdown(ending->get());
}

void shutDownContext() { Context::shutDownCurrent(); }

}  // namespace qor::socket
