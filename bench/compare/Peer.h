#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>

#include "bench/compare/Line.h"

namespace qor::bench {

/// This program once more, in another role.
class Peer {
 public:
  /// `role` is its first argument, `task` its second one. `patience` is how long it may say nothing; those
  /// that it starts itself get less, so that it is the one to tell of their failure.
  Peer(const char* role, const std::string& task, std::chrono::seconds patience);
  /// Ends it, should it still run, and reaps it: one whose line has gone gets some time to tidy up.
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  const Line& line() const { return *line_; }
  /// Throws std::runtime_error when it has failed, or does not end in time.
  void waitForItsEnd();

  /// Its end of the line, which it inherits.
  static constexpr int lineDescriptor = 3;

 private:
  const std::chrono::seconds patience_;
  std::unique_ptr<const Line> line_;
  pid_t process_ = 0;
};

}  // namespace qor::bench
