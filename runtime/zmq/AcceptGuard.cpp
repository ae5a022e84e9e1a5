#include "runtime/zmq/AcceptGuard.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <zmq.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "qor/utils/Log.h"

namespace qor::socket {

namespace {

constexpr std::chrono::seconds timeBetweenLines{10};

/// Pause after an attempt that could neither accept nor refuse, because another thread had taken the reserve:
/// libzmq tries again at once. Its other connections wait as long.
constexpr int millisecondsBetweenAttempts = 1;

constexpr const char* importedName = "accept4";

bool isShortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

/// If the limit has been lowered since, a number above it cannot be opened again once it is closed.
bool isAllowed(int descriptor) {
  rlimit limit{};
  return ::getrlimit(RLIMIT_NOFILE, &limit) == 0 && static_cast<rlim_t>(descriptor) < limit.rlim_cur;
}

std::string lineOf(int error, std::size_t refused) {
  std::string text = refused == 0   ? "cannot accept a connection: "
                     : refused == 1 ? "refused a connection: "
                                    : fmt::format("refused {} connections: ", refused);
  text += std::generic_category().message(error);
  rlimit limit{};
  if (error == EMFILE && ::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    text += fmt::format(" (this process may open {} files: ulimit -n)", limit.rlim_cur);
  }
  return text;
}

}  // namespace

AcceptGuard& AcceptGuard::instance() {
  static AcceptGuard guard;
  return guard;
}

AcceptGuard::AcceptGuard()
    : accept_(reinterpret_cast<Accept>(::dlsym(RTLD_DEFAULT, importedName))),
      import_(reinterpret_cast<const void*>(&::zmq_bind), importedName) {}

AcceptGuard::~AcceptGuard() {
  // This library may be unloaded while libzmq stays for other users.
  import_.replace(reinterpret_cast<void*>(&acceptOrRefuse), reinterpret_cast<void*>(accept_));
}

void AcceptGuard::install() {
  if (redirectAndReserve()) return;
  utils::logWarning(
      "cannot redirect libzmq's accept4: libzmq aborts this process if a peer connects when no descriptor is "
      "free");
}

bool AcceptGuard::redirectAndReserve() {
  const base::Lock lock(mutex_);
  if (!nothing_.isOpen()) nothing_ = base::FileDescriptor(::eventfd(0, EFD_CLOEXEC));
  if (!nothing_.isOpen() || !reserve()) {
    throw std::system_error(errno, std::generic_category(), "cannot reserve a descriptor");
  }
  // Every time: another thread's first call may have made the dynamic linker fill the entry meanwhile.
  const bool isInstalled = accept_ != nullptr && import_.redirectTo(reinterpret_cast<void*>(&acceptOrRefuse));
  return isInstalled || std::exchange(hasWarned_, true);
}

int AcceptGuard::acceptOrRefuse(int listener, sockaddr* address, socklen_t* size, int flags) noexcept {
  return instance().accept(listener, address, size, flags);
}

int AcceptGuard::accept(int listener, sockaddr* address, socklen_t* size, int flags) noexcept {
  const int accepted = accept_(listener, address, size, flags);
  if (accepted >= 0) {
    // Another thread may have taken it.
    const base::Lock lock(mutex_);
    reserve();
    return accepted;
  }
  const int error = errno;
  if (!isShortage(error)) return accepted;
  if (!refuse(listener)) ::poll(nullptr, 0, millisecondsBetweenAttempts);
  shortage_ = error;
  // As if the peer had disconnected before it was accepted, which libzmq tolerates.
  errno = ECONNABORTED;
  return -1;
}

bool AcceptGuard::reserve() noexcept {
  if (!reserve_.isOpen()) reserve_ = base::FileDescriptor(::fcntl(nothing_.get(), F_DUPFD_CLOEXEC, 0));
  return reserve_.isOpen();
}

/// False if the connection is still in the listener's queue.
bool AcceptGuard::refuse(int listener) noexcept {
  const base::Lock lock(mutex_);
  if (!reserve() || !isAllowed(reserve_.get())) return false;
  reserve_.close();
  const int connection = accept_(listener, nullptr, nullptr, SOCK_CLOEXEC);
  if (connection < 0) {
    const bool isNoneWaiting = !isShortage(errno);
    reserve();
    return isNoneWaiting;
  }
  // Closes the connection without freeing its number for other threads.
  while (::dup3(nothing_.get(), connection, O_CLOEXEC) < 0 && (errno == EINTR || errno == EBUSY)) {
  }
  reserve_ = base::FileDescriptor(connection);
  ++refused_;
  return true;
}

void AcceptGuard::logIfDue() {
  std::string text;
  {
    const base::Lock lock(logMutex_);
    const auto now = std::chrono::steady_clock::now();
    if (lastLine_ && now - *lastLine_ < timeBetweenLines) return;
    const int error = shortage_.exchange(0);
    if (error == 0) return;
    lastLine_ = now;
    text = lineOf(error, refused_.exchange(0));
  }
  utils::logWarning(text);
}

}  // namespace qor::socket
