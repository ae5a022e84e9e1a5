#include "runtime/processes/Pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace qor::processes {

Pipe::Pipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::system_category(), "cannot create a pipe");
  }
  read = base::FileDescriptor(ends[0]);
  write = base::FileDescriptor(ends[1]);
}

void LineReader::readSome() {
  std::array<char, 4096> bytes{};
  const ssize_t count = ::read(descriptor_.get(), bytes.data(), bytes.size());
  if (count > 0) {
    pending_.append(bytes.data(), static_cast<std::size_t>(count));
  } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
    descriptor_.close();
  }
}

bool LineReader::takeLine(std::string& line) {
  const auto end = pending_.find('\n');
  const bool isWhole = end < longestLine;
  if (!isWhole && pending_.size() < longestLine && (isOpen() || pending_.empty())) return false;
  const auto length = std::min({end, longestLine, pending_.size()});
  line = pending_.substr(0, length);
  pending_.erase(0, isWhole ? length + 1 : length);
  return true;
}

}  // namespace qor::processes
