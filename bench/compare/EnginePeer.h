#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "bench/compare/Line.h"

namespace qor::bench {

/// This program once more, as the engine of a run. It is ended, should it still run, and reaped by the
/// destructor.
class EnginePeer {
 public:
  explicit EnginePeer(const std::string& task);
  ~EnginePeer();
  EnginePeer(const EnginePeer&) = delete;
  EnginePeer& operator=(const EnginePeer&) = delete;

  const Line& line() const { return *line_; }
  /// Throws std::runtime_error when it has failed, or does not end in time.
  void waitForItsEnd();

  /// The engine's end of the line, which it inherits.
  static constexpr int lineDescriptor = 3;

 private:
  std::unique_ptr<const Line> line_;
  pid_t process_ = 0;
};

}  // namespace qor::bench
