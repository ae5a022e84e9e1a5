#pragma once

#include <string>

#include "engines/RunWatch.h"

namespace qor::engines {

/// A named pipe as FFmpeg can read it without being stuck in it: opened without blocking, which has FFmpeg
/// look at its interrupt callback while no data comes. Locations that are no pipes are left alone.
class InterruptiblePipe {
 public:
  /// Of a pipe, waits until somebody writes or a stop is requested.
  InterruptiblePipe(const std::string& location, RunWatch& watch);
  ~InterruptiblePipe();
  InterruptiblePipe(const InterruptiblePipe&) = delete;
  InterruptiblePipe& operator=(const InterruptiblePipe&) = delete;

  bool isPipe() const { return descriptor_ >= 0; }
  /// What FFmpeg opens it by, while this lives.
  std::string url() const;

 private:
  int descriptor_ = -1;
};

}  // namespace qor::engines
