#pragma once

#include <string>

#include "engines/sdk/RunWatch.h"
#include "runtime/base/FileDescriptor.h"

namespace qor::engines {

/// Opens a named pipe for FFmpeg so that a stop request interrupts the opening. Does nothing for other
/// locations.
class InterruptiblePipe {
 public:
  enum class Direction {
    /// Waits for a writer. Reads do not block, so that FFmpeg checks its interrupt callback while no data
    /// arrives.
    Read,
    /// Waits for a reader. Writes block.
    Write,
  };

  /// A stop request ends the wait; for a pipe to be written, this then throws StoppedEarly.
  InterruptiblePipe(const std::string& location, Direction direction, RunWatch& watch);
  InterruptiblePipe(const InterruptiblePipe&) = delete;
  InterruptiblePipe& operator=(const InterruptiblePipe&) = delete;

  bool isPipe() const { return pipe_.isOpen(); }
  /// The location to pass to FFmpeg, valid during the lifetime of this object.
  std::string url() const;

 private:
  void openToRead(const std::string& path, RunWatch& watch);
  void openToWrite(const std::string& path, RunWatch& watch);

  base::FileDescriptor pipe_;
};

}  // namespace qor::engines
