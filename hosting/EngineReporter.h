#pragma once

#include <utility>

#include "hosting/EngineReport.h"
#include "runtime/base/FileDescriptor.h"
#include "runtime/processes/Pipe.h"

namespace qor::hosting {

/// An engine process's end of the line to its supervisor. Any thread.
class EngineReporter {
 public:
  /// The write end of a pipe.
  explicit EngineReporter(base::FileDescriptor pipe) : pipe_(std::move(pipe)) {}

  int descriptor() const { return pipe_.get(); }
  /// Does not throw. From "ready" on, the process outlives its supervisor, since it has a host; from
  /// "leaving" on, it is killed after 10 s, should there be no supervisor to do so earlier.
  void report(const EngineReport& report) const;

 private:
  base::FileDescriptor pipe_;
};

}  // namespace qor::hosting
