#include "bench/compare/Line.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace qor::bench {

Line::Line(int descriptor, std::chrono::seconds patience) : descriptor_(descriptor) {
  const timeval timeOut{.tv_sec = patience.count(), .tv_usec = 0};
  ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &timeOut, sizeof timeOut);
  // Not inherited: the connection would not end with its owner if a program started by the owner held it as
  // well.
  ::fcntl(descriptor_, F_SETFD, FD_CLOEXEC);
}

Line::~Line() { ::close(descriptor_); }

void Line::give(const void* bytes, std::size_t count) const {
  ::send(descriptor_, bytes, count, MSG_NOSIGNAL);
}

void Line::take(void* bytes, std::size_t count) const {
  ssize_t taken = 0;
  do {
    taken = ::recv(descriptor_, bytes, count, MSG_WAITALL);
  } while (taken < 0 && errno == EINTR);
  if (taken == static_cast<ssize_t>(count)) return;
  throw std::runtime_error("the other process says nothing any more: " +
                           (taken < 0 ? std::system_category().message(errno) : std::string("it has gone")));
}

void Line::giveSign() const {
  const char sign = 0;
  give(&sign, 1);
}

void Line::takeSign() const {
  char sign = 0;
  take(&sign, 1);
}

}  // namespace qor::bench
