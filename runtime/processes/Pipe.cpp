#include "runtime/processes/Pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace qor::processes {

void Descriptor::close() {
  if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
}

Pipe::Pipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::system_category(), "cannot make a pipe");
  }
  read = Descriptor(ends[0]);
  write = Descriptor(ends[1]);
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
  if (end == std::string::npos && (isOpen() || pending_.empty())) return false;
  line = pending_.substr(0, end);
  pending_.erase(0, end == std::string::npos ? end : end + 1);
  return true;
}

}  // namespace qor::processes
