#pragma once

#include <chrono>
#include <cstddef>

namespace qor::bench {

/// The connection between the two processes of a run, apart from the measured channels. One thread sends, one
/// receives.
class Line {
 public:
  /// Owns a connected stream socket. `patience` is how long the other process may be silent.
  Line(int descriptor, std::chrono::seconds patience);
  ~Line();
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  /// Ignores errors: a receive notices that the other process has exited.
  void give(const void* bytes, std::size_t count) const;
  /// Throws std::runtime_error if the other process is silent for too long or has exited.
  void take(void* bytes, std::size_t count) const;

  void giveSign() const;
  void takeSign() const;

 private:
  const int descriptor_;
};

}  // namespace qor::bench
