#include "runtime/zmq/ForeignDescriptor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <thread>

namespace qor::socket {

std::optional<ForeignDescriptor> ForeignDescriptor::of(int number) noexcept {
  struct stat status {};
  if (::fstat(number, &status) != 0 || !S_ISSOCK(status.st_mode)) return std::nullopt;
  return ForeignDescriptor(number, status.st_ino);
}

bool ForeignDescriptor::isOpen() const noexcept { return of(number_) == *this; }

base::FileDescriptor ForeignDescriptor::duplicate() const noexcept {
  base::FileDescriptor ours(::fcntl(number_, F_DUPFD_CLOEXEC, 0));
  const auto duplicated = of(ours.get());
  // It may have been closed, and its number reused, just before the call.
  if (!duplicated || duplicated->inode_ != inode_) return {};
  return ours;
}

void ForeignDescriptor::waitUntilClosed(std::chrono::milliseconds atMost) const noexcept {
  const auto deadline = std::chrono::steady_clock::now() + atMost;
  // libzmq's I/O thread closes it after reporting the end; nothing reports the close itself.
  while (isOpen() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
}

}  // namespace qor::socket
