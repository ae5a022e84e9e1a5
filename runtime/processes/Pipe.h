#pragma once

#include <cstddef>
#include <string>
#include <utility>

namespace qor::processes {

/// A descriptor with one owner. Closed on exec.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  ~Descriptor() { close(); }
  Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  int get() const { return descriptor_; }
  bool isOpen() const { return descriptor_ >= 0; }
  void close();

 private:
  int descriptor_ = -1;
};

/// Both ends of a new pipe. Throws std::system_error.
struct Pipe {
  Pipe();
  Descriptor read;
  Descriptor write;
};

/// Cuts what is read from a descriptor into lines. A longer line than the longest comes in pieces. One
/// thread.
class LineReader {
 public:
  static constexpr std::size_t longestLine = 65'536;

  explicit LineReader(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

  int descriptor() const { return descriptor_.get(); }
  bool isOpen() const { return descriptor_.isOpen(); }
  /// Reads once what there is, waiting for it if there is nothing; at the end, the descriptor is closed.
  void readSome();
  /// Takes the next complete line out, without its end; at the end of the input also an incomplete one. False
  /// when there is none.
  bool takeLine(std::string& line);

 private:
  Descriptor descriptor_;
  std::string pending_;
};

}  // namespace qor::processes
