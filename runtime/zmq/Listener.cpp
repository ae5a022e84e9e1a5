#include "runtime/zmq/Listener.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>
#include <utility>

#include "runtime/base/RandomUuid.h"
#include "runtime/messaging/TcpListener.h"
#include "runtime/zmq/AcceptGuard.h"
#include "runtime/zmq/LocalListener.h"

namespace qor::socket {

namespace {

/// The name of an inproc endpoint among the machine's local sockets. The random part keeps the names of
/// processes apart; peers of other users are rejected when they connect.
std::string nameWithinProcess(const std::string& name) {
  static const std::string prefix = "@" + base::randomUuid() + '-';
  return prefix + name;
}

base::FileDescriptor listenOn(const SocketEndpoint& endpoint) {
  switch (endpoint.transport()) {
    case SocketEndpoint::Transport::Tcp: {
      base::FileDescriptor reserved;
      if (endpoint.reservation()) reserved = endpoint.reservation()->take();
      return reserved.isOpen() ? std::move(reserved) : listenOnTcp(endpoint.host(), endpoint.port());
    }
    case SocketEndpoint::Transport::Ipc:
      return listenOnLocal(endpoint.host());
    case SocketEndpoint::Transport::Inproc:
      return listenOnLocal(nameWithinProcess(endpoint.host()));
  }
  throw std::logic_error("unknown transport");
}

/// How long an address in use is retried: far longer than the kernel needs to free it, and too short for
/// anyone to notice.
constexpr std::chrono::milliseconds timeToBeFreed{100};

/// The kernel frees an address a moment after the number of its last owner's descriptor, without a
/// notification. A bind right after a close may fall between the two. Socket files are not retried: they are
/// removed before that, and repeated attempts would look like peers to a live owner.
base::FileDescriptor listenOnceFree(const SocketEndpoint& endpoint) {
  const auto deadline = std::chrono::steady_clock::now() + timeToBeFreed;
  for (;;) {
    try {
      return listenOn(endpoint);
    } catch (const AddressInUse&) {
      const bool isFile =
          endpoint.transport() == SocketEndpoint::Transport::Ipc && endpoint.host().front() != '@';
      if (isFile || std::chrono::steady_clock::now() >= deadline) throw;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace

std::string zmqAddress(const SocketEndpoint& endpoint) {
  if (endpoint.transport() == SocketEndpoint::Transport::Inproc) {
    return "ipc://" + nameWithinProcess(endpoint.host());
  }
  return endpoint.address();
}

SocketFile::SocketFile(const std::string& path) {
  struct stat status {};
  if (path.front() == '@' || ::lstat(path.c_str(), &status) != 0) return;
  path_ = path;
  device_ = status.st_dev;
  inode_ = status.st_ino;
}

void SocketFile::remove() noexcept {
  struct stat status {};
  if (!path_.empty() && ::lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ &&
      status.st_ino == inode_) {
    ::unlink(path_.c_str());
  }
  path_.clear();
}

Listener::Listener(ZmqSocket& socket, const SocketEndpoint& endpoint, const SocketLabel& label) {
  const std::string who = label.text();
  base::FileDescriptor listener;
  try {
    AcceptGuard::instance().install();
    listener = listenOnceFree(endpoint);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(who + ": " + error.what());
  }
  if (endpoint.transport() == SocketEndpoint::Transport::Ipc) file_.emplace(endpoint.host());
  if (endpoint.transport() == SocketEndpoint::Transport::Inproc) {
    socket.setOption(ZMQ_IPC_FILTER_UID, static_cast<int>(::getuid()));
  }
  socket.setOption(ZMQ_USE_FD, listener.get());
  if (::zmq_bind(socket.get(), zmqAddress(endpoint).c_str()) != 0) throwZmqError(who, "cannot bind");
  descriptor_ = ForeignDescriptor::of(listener.release());
}

void Listener::removeSocketFile() noexcept { file_.reset(); }

void Listener::waitUntilClosed() const {
  // Once the context is being shut down, libzmq reports no events. It normally closes the descriptor within
  // microseconds; a second is far longer than its thread may have to wait for a processor. If it were still
  // open then, the next bind would report that the endpoint is in use.
  descriptor_->waitUntilClosed(std::chrono::seconds(1));
}

}  // namespace qor::socket
