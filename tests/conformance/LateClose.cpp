// Preloaded into a program: frees the address of a listening socket some time after its descriptor's number.
// The kernel may do that at any time, because it does one after the other.

#include <dlfcn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <list>
#include <mutex>
#include <thread>

namespace {

/// Longer than the first attempt to bind takes, and far less than the 100 ms of retries.
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
  static std::list<std::jthread> closing;  // joined when the program exits
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
