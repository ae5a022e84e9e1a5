#include "runtime/console/ErrorStream.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <string>

#include "runtime/base/FileDescriptor.h"
#include "runtime/base/Mutex.h"
#include "runtime/console/LogLine.h"
#include "runtime/tamb/EscapedText.h"
#include "tamb/LogContext.h"

namespace qor::console {

namespace {

/// It needs no destruction, hence can be locked as long as the process lives.
base::Mutex mutex;
std::size_t dropped QOR_GUARDED_BY(mutex) = 0;
/// Whether the last line was written only in part.
bool isInLine QOR_GUARDED_BY(mutex) = false;

/// Writes to a stream without blocking. A terminal or a file is polled before each piece. A pipe may be
/// shared, and full by the time of the write: it is opened again, with O_NONBLOCK for this description only.
class Stream {
 public:
  explicit Stream(int descriptor) : descriptor_(descriptor) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) return;
    isSocket_ = S_ISSOCK(status.st_mode);
    if (!S_ISFIFO(status.st_mode)) return;
    const std::string name = "/proc/self/fd/" + std::to_string(descriptor);
    own_ = base::FileDescriptor(::open(name.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    if (own_.isOpen()) descriptor_ = own_.get();
  }

  /// The number of bytes written; 0 or negative when the stream accepts none.
  ssize_t write(std::string_view piece) const {
    if (isSocket_) return ::send(descriptor_, piece.data(), piece.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return takesSome() ? ::write(descriptor_, piece.data(), piece.size()) : 0;
  }

 private:
  bool takesSome() const {
    pollfd stream{.fd = descriptor_, .events = POLLOUT, .revents = 0};
    return own_.isOpen() || (::poll(&stream, 1, 0) == 1 && (stream.revents & POLLOUT) != 0);
  }

  int descriptor_;
  bool isSocket_ = false;
  base::FileDescriptor own_;
};

/// Returns the part of the text that could not be written.
std::string_view writeSome(int descriptor, std::string_view text) {
  const Stream stream(descriptor);
  while (!text.empty()) {
    // A pipe accepts a piece of this size whole or not at all.
    const auto written = stream.write(text.substr(0, PIPE_BUF));
    if (written <= 0) break;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return text;
}

bool writeLine(std::string line) QOR_REQUIRES(mutex) {
  if (isInLine) line.insert(line.begin(), '\n');
  line += '\n';
  const auto rest = writeSome(STDERR_FILENO, line);
  if (rest.size() < line.size()) isInLine = !rest.empty();
  return rest.empty();
}

void writeCount() QOR_REQUIRES(mutex) {
  if (dropped == 0) return;
  const std::string prefix = logPrefix("Warning", tamb::GetThreadId());
  if (writeLine(prefix + "(" + std::to_string(dropped) + " lines could not be written here)")) dropped = 0;
}

}  // namespace

void writeErrorLine(std::string_view line) {
  const base::Lock lock(mutex);
  writeCount();
  if (dropped > 0 || !writeLine(tamb::EscapedText(line))) ++dropped;
}

void writeDroppedLines() {
  const base::Lock lock(mutex);
  writeCount();
}

bool writeWithoutWaiting(int descriptor, std::string_view text) {
  return writeSome(descriptor, text).empty();
}

}  // namespace qor::console
