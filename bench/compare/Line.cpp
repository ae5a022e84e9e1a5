#include "bench/compare/Line.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace qor::bench {

Line::Line(int descriptor) : descriptor_(descriptor) {
  const timeval timeOut{.tv_sec = 60, .tv_usec = 0};
  ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &timeOut, sizeof timeOut);
}

Line::~Line() { ::close(descriptor_); }

void Line::give(const void* bytes, std::size_t count) const {
  ::send(descriptor_, bytes, count, MSG_NOSIGNAL);
}

void Line::take(void* bytes, std::size_t count) const {
  const auto taken = ::recv(descriptor_, bytes, count, MSG_WAITALL);
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
