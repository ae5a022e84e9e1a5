#pragma once

#include <unistd.h>

#include <utility>

namespace qor::base {

/// Owns a file descriptor and closes it. Not thread-safe.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  /// Owns the result of a system call: a negative value means failure and no descriptor.
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
  /// Negative if it is not open.
  int get() const { return descriptor_; }
  /// Transfers the ownership of the descriptor to the caller.
  int release() { return std::exchange(descriptor_, none); }
  /// Does nothing if it is not open.
  void close() {
    if (isOpen()) ::close(release());
  }

 private:
  static constexpr int none = -1;
  int descriptor_ = none;
};

}  // namespace qor::base
