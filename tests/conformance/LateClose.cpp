// Preloaded into a program: keeps the address of a listening socket after its descriptor's number is free,
// until two attempts to listen there have failed. The kernel may do so at any time, because it frees one
// after the other.

#include <dlfcn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <vector>

namespace {

/// One could be the program's check whether the address is free, which is not repeated.
constexpr int failuresBeforeClosing = 2;

template <class Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

int closeNow(int descriptor) {
  static const auto closeDescriptor = next<int (*)(int)>("close");
  return closeDescriptor(descriptor);
}

bool isListening(int descriptor) {
  int listens = 0;
  socklen_t size = sizeof listens;
  return ::getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens != 0;
}

/// The descriptors that hold addresses. Any thread.
class Held {
 public:
  void add(int descriptor) {
    const std::lock_guard lock(mutex_);
    descriptors_.push_back({descriptor, 0});
  }

  /// Passes `result` on, which a call has returned with errno set.
  int after(int result) {
    if (result == 0 || errno != EADDRINUSE) return result;
    const std::lock_guard lock(mutex_);
    std::erase_if(descriptors_, [](Descriptor& held) {
      return ++held.failures >= failuresBeforeClosing && closeNow(held.number) == 0;
    });
    errno = EADDRINUSE;
    return result;
  }

 private:
  struct Descriptor {
    int number;
    int failures;
  };
  std::mutex mutex_;
  std::vector<Descriptor> descriptors_;
};

/// Never destroyed: the program closes descriptors until it exits.
Held& held() {
  static auto& instance = *new Held;
  return instance;
}

}  // namespace

extern "C" {

int close(int descriptor) {
  if (isListening(descriptor)) {
    if (const int copy = ::dup(descriptor); copy >= 0) held().add(copy);
  }
  return closeNow(descriptor);
}

int bind(int descriptor, const sockaddr* address, socklen_t size) noexcept {
  static const auto bindDescriptor = next<int (*)(int, const sockaddr*, socklen_t)>("bind");
  return held().after(bindDescriptor(descriptor, address, size));
}

int listen(int descriptor, int backlog) noexcept {
  static const auto listenOn = next<int (*)(int, int)>("listen");
  return held().after(listenOn(descriptor, backlog));
}
}
