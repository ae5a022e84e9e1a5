#pragma once

#include <unistd.h>

#include <utility>

namespace qor::socket {

/// Owns a file descriptor.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() {
    if (descriptor_ != none) ::close(descriptor_);
  }

  explicit operator bool() const { return descriptor_ != none; }
  int get() const { return descriptor_; }
  /// Gives the descriptor, and the duty to close it, to the caller.
  int release() { return std::exchange(descriptor_, none); }

 private:
  static constexpr int none = -1;
  int descriptor_ = none;
};

}  // namespace qor::socket
