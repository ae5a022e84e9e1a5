#include "runtime/zmq/Context.h"

#include <sys/eventfd.h>
#include <unistd.h>
#include <zmq.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <utility>

#include "qor/socket/Socket.h"
#include "runtime/base/FileDescriptor.h"
#include "runtime/base/Mutex.h"
#include "runtime/zmq/AcceptGuard.h"
#include "runtime/zmq/ZmqHandles.h"

namespace qor::socket {

namespace {

/// A few for each remote engine, for more engines than a machine runs; each costs a pointer.
constexpr int maximumSockets = 8'192;

/// The descriptors of a context's threads and its first socket: two each, and one to end all threads.
constexpr std::size_t firstDescriptors = 8;

/// Throws std::runtime_error if this process may not open that many, because libzmq aborts a process whose
/// context's threads find none.
void requireDescriptors() {
  std::array<base::FileDescriptor, firstDescriptors> room;
  for (base::FileDescriptor& descriptor : room) {
    descriptor = base::FileDescriptor(::eventfd(0, EFD_CLOEXEC));
    if (!descriptor.isOpen()) throwZmqError("libzmq", "cannot create a messaging context");
  }
}

struct Current {
  ~Current() {
    // A forked child has this object, but neither the context's threads nor a use for it.
    if (::getpid() == owner) context.reset();
  }

  /// Created first, to be destroyed after the threads that it guards.
  [[maybe_unused]] AcceptGuard& guard = AcceptGuard::instance();
  const pid_t owner = ::getpid();
  base::Mutex mutex;
  /// Outlives this object, so that a child does not touch it.
  std::shared_ptr<Context>& context QOR_GUARDED_BY(mutex) = *new std::shared_ptr<Context>();
};

Current& current() {
  static Current instance;
  return instance;
}

}  // namespace

Context::Context() : context_(::zmq_ctx_new()) {
  if (!context_) throwZmqError("libzmq", "cannot create a messaging context");
  ::zmq_ctx_set(context_.get(), ZMQ_MAX_SOCKETS, maximumSockets);
  requireDescriptors();
  // The first socket starts the context's threads: now that there is room for them.
  const ZmqSocket starter(context_.get(), ZMQ_PAIR, "libzmq");
}

void Context::Terminate::operator()(void* context) const {
  // Only a signal interrupts it, and then it is to be called again.
  while (::zmq_ctx_term(context) != 0 && errno == EINTR) {
  }
}

std::shared_ptr<Context> Context::current() {
  Current& now = socket::current();
  const base::Lock lock(now.mutex);
  if (!now.context) now.context = std::make_shared<Context>();
  return now.context;
}

void Context::shutDownCurrent() {
  Current& now = socket::current();
  std::shared_ptr<Context> ending;
  {
    const base::Lock lock(now.mutex);
    ending = std::exchange(now.context, nullptr);
  }
  if (!ending) return;
  ending->isShutDown_ = true;
  ::zmq_ctx_shutdown(ending->get());
}

}  // namespace qor::socket
