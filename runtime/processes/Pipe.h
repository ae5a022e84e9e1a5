#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "runtime/base/FileDescriptor.h"

namespace qor::processes {

/// A new pipe. Throws std::system_error.
struct Pipe {
  Pipe();
  base::FileDescriptor read;
  base::FileDescriptor write;
};

/// Reads lines from a descriptor. A line over `longestLine` bytes is split. One thread.
class LineReader {
 public:
  static constexpr std::size_t longestLine = 65'536;

  explicit LineReader(base::FileDescriptor descriptor) : descriptor_(std::move(descriptor)) {}

  int descriptor() const { return descriptor_.get(); }
  bool isOpen() const { return descriptor_.isOpen(); }
  /// Reads once, blocking while nothing is available; closes the descriptor at the end of the input.
  void readSome();
  /// Takes the next complete line, without its line end; at the end of the input also an incomplete one.
  /// False when no line is available.
  bool takeLine(std::string& line);

 private:
  base::FileDescriptor descriptor_;
  std::string pending_;
};

}  // namespace qor::processes
