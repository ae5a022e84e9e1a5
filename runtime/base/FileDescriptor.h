#pragma once

#include <unistd.h>

#include <utility>

namespace qor::base {

/// Owns a file descriptor and closes it. Not thread-safe.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  /// Takes over what a system call returned: a negative value, its failure, means no descriptor.
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      close();
      descriptor_ = other.release();
    }
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { close(); }

  bool isOpen() const { return descriptor_ >= 0; }
  /// Negative when it is not open.
  int get() const { return descriptor_; }
  /// Passes the descriptor, and the duty to close it, to the caller.
  int release() { return std::exchange(descriptor_, none); }
  /// Does nothing when it is not open.
  void close() {
    if (isOpen()) ::close(release());
  }

 private:
  static constexpr int none = -1;
  int descriptor_ = none;
};

}  // namespace qor::base
