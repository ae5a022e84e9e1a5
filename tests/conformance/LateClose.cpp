// Loaded ahead of a program: the address of a listening socket is freed some time after its descriptor's
// number. That may happen any time, since the system does the one after the other.

#include <dlfcn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <list>
#include <mutex>
#include <thread>

namespace {

/// Longer than it takes to try the address for the first time, and far less than the 100 ms that it is tried.
constexpr std::chrono::milliseconds delay{5};

int closeNow(int descriptor) {
  static auto* const next = reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, "close"));
  return next(descriptor);
}

bool isListening(int descriptor) {
  int listens = 0;
  socklen_t size = sizeof listens;
  return ::getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens != 0;
}

void closeLater(int descriptor) {
  static std::mutex mutex;
  static std::list<std::jthread> closing;  // joined when the program ends
  const std::lock_guard lock(mutex);
  closing.emplace_back([descriptor] {
    std::this_thread::sleep_for(delay);
    closeNow(descriptor);
  });
}

}  // namespace

extern "C" int close(int descriptor) {
  if (isListening(descriptor)) {
    if (const int held = ::dup(descriptor); held >= 0) closeLater(held);
  }
  return closeNow(descriptor);
}
