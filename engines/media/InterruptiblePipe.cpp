#include "engines/media/InterruptiblePipe.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

namespace {

constexpr int pollMilliseconds = 20;

}  // namespace

InterruptiblePipe::InterruptiblePipe(const std::string& location, RunWatch& watch) {
  struct stat status {};
  if (::stat(location.c_str(), &status) != 0 || !S_ISFIFO(status.st_mode)) {
    return;
  }
  descriptor_ = ::open(location.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor_ < 0) {
    throw tamb::TAMBRuntimeError(
        fmt::format("Cannot open {:?}: {}", location, std::generic_category().message(errno)));
  }
  // Until there is a writer, reading would find an end.
  pollfd readable{descriptor_, POLLIN, 0};
  while (!watch.stopRequested() && ::poll(&readable, 1, pollMilliseconds) == 0) {
    watch.beat();
  }
}

InterruptiblePipe::~InterruptiblePipe() {
  if (descriptor_ >= 0) {
    ::close(descriptor_);
  }
}

std::string InterruptiblePipe::url() const { return fmt::format("pipe:{}", descriptor_); }

}  // namespace qor::engines
