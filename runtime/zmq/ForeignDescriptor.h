#pragma once

#include <chrono>
#include <optional>

#include "runtime/base/FileDescriptor.h"

namespace qor::socket {

/// A socket's descriptor that libzmq may close at any time, on its own thread; then its number may be reused.
/// The inode, which is not reused, distinguishes the two. A value.
class ForeignDescriptor {
 public:
  /// The current owner of the number; empty if that is not a socket.
  static std::optional<ForeignDescriptor> of(int number) noexcept;

  int number() const { return number_; }
  /// Whether the number still refers to the same socket.
  bool isOpen() const noexcept;
  /// A duplicate of the socket; empty if it is closed, or if no descriptor is available.
  base::FileDescriptor duplicate() const noexcept;
  /// Polls until the descriptor is closed, at most for `atMost`, because no event reports the close.
  void waitUntilClosed(std::chrono::milliseconds atMost) const noexcept;

  friend bool operator==(const ForeignDescriptor&, const ForeignDescriptor&) = default;

 private:
  ForeignDescriptor(int number, unsigned long long inode) : number_(number), inode_(inode) {}

  int number_;
  unsigned long long inode_;
};

}  // namespace qor::socket
