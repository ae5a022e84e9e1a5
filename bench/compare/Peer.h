#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>

#include "bench/compare/Line.h"

namespace qor::bench {

/// This program in another process and another role.
class Peer {
 public:
  /// `role` is its first argument, `task` its second. `patience` is how long it may be silent; processes that
  /// it starts get less, so that it can report their failures.
  Peer(const char* role, const std::string& task, std::chrono::seconds patience);
  /// Ends the process if it is still running, and reaps it: after the end of its line it has some time to
  /// clean up.
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  const Line& line() const { return *line_; }
  /// Throws std::runtime_error if it has failed, or does not exit in time.
  void waitForItsEnd();

  /// The child's end of the line, which it inherits.
  static constexpr int lineDescriptor = 3;

 private:
  const std::chrono::seconds patience_;
  std::unique_ptr<const Line> line_;
  pid_t process_ = 0;
};

}  // namespace qor::bench
