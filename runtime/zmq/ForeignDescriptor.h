#pragma once

#include <chrono>
#include <optional>

#include "runtime/base/FileDescriptor.h"

namespace qor::socket {

/// A socket's descriptor that libzmq closes whenever it sees fit, on a thread of its own; then its number may
/// stand for something else. The inode, which is not used again, tells the two apart. A value.
class ForeignDescriptor {
 public:
  /// What the number stands for now; nothing when that is not a socket.
  static std::optional<ForeignDescriptor> of(int number) noexcept;

  int number() const { return number_; }
  /// The number still stands for the same socket.
  bool isOpen() const noexcept;
  /// The same socket under a number of our own; empty when it is closed, or when no descriptor can be had.
  base::FileDescriptor duplicate() const noexcept;
  /// There is nothing to wait on: looks until the descriptor is closed, no longer than `atMost`.
  void waitUntilClosed(std::chrono::milliseconds atMost) const noexcept;

  friend bool operator==(const ForeignDescriptor&, const ForeignDescriptor&) = default;

 private:
  ForeignDescriptor(int number, unsigned long long inode) : number_(number), inode_(inode) {}

  int number_;
  unsigned long long inode_;
};

}  // namespace qor::socket
