#include "programs/support/ErrorStream.h"

#include <poll.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <mutex>
#include <string>

namespace qor::programs {

namespace {

/// It needs no destruction, hence can be locked as long as the process lives.
std::mutex mutex;
std::size_t dropped = 0;

bool takesSome() {
  pollfd stream{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
  return ::poll(&stream, 1, 0) == 1 && (stream.revents & POLLOUT) != 0;
}

/// False when it could not be written whole.
bool write(std::string_view text) {
  while (!text.empty()) {
    // A pipe that takes some takes so much without waiting.
    const auto piece = text.substr(0, PIPE_BUF);
    if (!takesSome()) return false;
    const auto written = ::write(STDERR_FILENO, piece.data(), piece.size());
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

void writeErrorLine(std::string_view line) {
  const std::lock_guard lock(mutex);
  if (dropped > 0 && write("(" + std::to_string(dropped) + " lines could not be written here)\n"))
    dropped = 0;
  if (dropped > 0 || !write(std::string(line) + '\n')) ++dropped;
}

}  // namespace qor::programs
