#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "runtime/base/FileDescriptor.h"

namespace qor::processes {

/// Both ends of a new pipe. Throws std::system_error.
struct Pipe {
  Pipe();
  base::FileDescriptor read;
  base::FileDescriptor write;
};

/// Cuts what is read from a descriptor into lines. A longer line than the longest comes in pieces. One
/// thread.
class LineReader {
 public:
  static constexpr std::size_t longestLine = 65'536;

  explicit LineReader(base::FileDescriptor descriptor) : descriptor_(std::move(descriptor)) {}

  int descriptor() const { return descriptor_.get(); }
  bool isOpen() const { return descriptor_.isOpen(); }
  /// Reads once what there is, waiting for it if there is nothing; at the end, the descriptor is closed.
  void readSome();
  /// Takes the next complete line out, without its end; at the end of the input also an incomplete one. False
  /// when there is none.
  bool takeLine(std::string& line);

 private:
  base::FileDescriptor descriptor_;
  std::string pending_;
};

}  // namespace qor::processes
