#include "runtime/zmq/SocketWatch.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>

namespace qor::socket {

namespace {

void startPolling(const base::FileDescriptor& poller, int descriptor) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = descriptor;
  if (::epoll_ctl(poller.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot watch a socket");
  }
}

void stopPolling(const base::FileDescriptor& poller, int descriptor) {
  ::epoll_ctl(poller.get(), EPOLL_CTL_DEL, descriptor, nullptr);
}

}  // namespace

SocketWatch::SocketWatch()
    : poller_(::epoll_create1(EPOLL_CLOEXEC)), stop_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!poller_.isOpen() || !stop_.isOpen()) {
    throw std::system_error(errno, std::generic_category(), "cannot watch sockets");
  }
  startPolling(poller_, stop_.get());
}

SocketWatch::~SocketWatch() {
  if (!thread_.joinable()) return;
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(stop_.get(), &one, sizeof one);
  thread_.join();
}

void SocketWatch::add(int descriptor, Watched& watched) {
  const base::Lock lock(mutex_);
  if (!thread_.joinable()) start();
  startPolling(poller_, descriptor);
  watched_.emplace(descriptor, &watched);
  // libzmq only signals changes after the last check, so a first check is needed.
  watched.onActivity();
}

void SocketWatch::start() {
  // The process's signals are for its own threads: the new one inherits a mask that blocks all of them.
  sigset_t all;
  sigset_t before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    thread_ = std::thread([this] { watch(); });
  } catch (...) {
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    throw;
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void SocketWatch::remove(int descriptor) {
  const base::Lock lock(mutex_);
  stopPolling(poller_, descriptor);
  watched_.erase(descriptor);
}

void SocketWatch::watch() {
  for (;;) {
    // One event at a time: between two of them a socket may be removed, and its descriptor reused.
    epoll_event event{};
    const int ready = ::epoll_wait(poller_.get(), &event, 1, -1);
    if (ready < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "cannot watch sockets");
    }
    if (ready <= 0) continue;
    if (event.data.fd == stop_.get()) return;
    const base::Lock lock(mutex_);
    const auto found = watched_.find(event.data.fd);
    if (found != watched_.end() && !found->second->onActivity()) {
      stopPolling(poller_, found->first);
      watched_.erase(found);
    }
  }
}

}  // namespace qor::socket
