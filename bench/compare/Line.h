#pragma once

#include <chrono>
#include <cstddef>

namespace qor::bench {

/// What the two processes of a run tell each other aside from what is measured. One thread gives, one takes.
class Line {
 public:
  /// Takes a connected stream socket over. `patience` is how long the other process may say nothing.
  Line(int descriptor, std::chrono::seconds patience);
  ~Line();
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  /// A process that has gone is told by what does not come any more.
  void give(const void* bytes, std::size_t count) const;
  /// Throws std::runtime_error when the other process says nothing any more.
  void take(void* bytes, std::size_t count) const;

  void giveSign() const;
  void takeSign() const;

 private:
  const int descriptor_;
};

}  // namespace qor::bench
