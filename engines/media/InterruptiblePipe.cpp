#include "engines/media/InterruptiblePipe.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <system_error>

#include "engines/media/FilePath.h"
#include "engines/media/StoppedEarly.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

namespace {

constexpr std::chrono::milliseconds lookInterval{20};

[[noreturn]] void fail(const std::string& path) {
  throw tamb::TAMBRuntimeError(
      fmt::format("Cannot open {:?}: {}", path, std::generic_category().message(errno)));
}

}  // namespace

InterruptiblePipe::InterruptiblePipe(const std::string& location, Direction direction, RunWatch& watch) {
  const auto path = filePath(location);
  struct stat status {};
  if (path.empty() || ::stat(path.c_str(), &status) != 0 || !S_ISFIFO(status.st_mode)) {
    return;
  }
  if (direction == Direction::Read) {
    openToRead(path, watch);
  } else {
    openToWrite(path, watch);
  }
}

std::string InterruptiblePipe::url() const { return fmt::format("pipe:{}", pipe_.get()); }

void InterruptiblePipe::openToRead(const std::string& path, RunWatch& watch) {
  pipe_ = base::FileDescriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!pipe_.isOpen()) {
    fail(path);
  }
  // A read before a writer has connected would return the end of the file.
  pollfd readable{pipe_.get(), POLLIN, 0};
  while (!watch.stopRequested() && ::poll(&readable, 1, static_cast<int>(lookInterval.count())) == 0) {
    watch.beat();
  }
}

void InterruptiblePipe::openToWrite(const std::string& path, RunWatch& watch) {
  // The kernel offers no way to wait for a reader; only opening the pipe again detects one.
  for (;;) {
    pipe_ = base::FileDescriptor(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    if (pipe_.isOpen()) {
      break;
    }
    if (errno != ENXIO) {
      fail(path);
    }
    if (watch.stopRequested()) {
      throw StoppedEarly();
    }
    watch.beat();
    watch.sleepUntil(RunWatch::Clock::now() + lookInterval);
  }
  // Writes have to wait for a slow reader, so that the output is complete.
  if (::fcntl(pipe_.get(), F_SETFL, 0) != 0) {
    fail(path);
  }
}

}  // namespace qor::engines
