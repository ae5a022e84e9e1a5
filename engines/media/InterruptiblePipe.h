#pragma once

#include <string>

#include "engines/sdk/RunWatch.h"
#include "runtime/base/FileDescriptor.h"

namespace qor::engines {

/// A named pipe as FFmpeg can use it without being stuck in its opening. Locations that are no pipes are left
/// alone.
class InterruptiblePipe {
 public:
  enum class Direction {
    /// Waits until somebody writes. Reading does not block, which has FFmpeg look at its interrupt callback
    /// while no data comes.
    Read,
    /// Waits until somebody reads. Writing blocks.
    Write,
  };

  /// Waits no longer when a stop is requested; a pipe that is to be written throws StoppedEarly then.
  InterruptiblePipe(const std::string& location, Direction direction, RunWatch& watch);
  InterruptiblePipe(const InterruptiblePipe&) = delete;
  InterruptiblePipe& operator=(const InterruptiblePipe&) = delete;

  bool isPipe() const { return pipe_.isOpen(); }
  /// What FFmpeg opens it by, while this lives.
  std::string url() const;

 private:
  void openToRead(const std::string& path, RunWatch& watch);
  void openToWrite(const std::string& path, RunWatch& watch);

  base::FileDescriptor pipe_;
};

}  // namespace qor::engines
