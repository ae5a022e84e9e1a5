#pragma once

#include <csignal>
#include <functional>
#include <thread>

#include "runtime/base/FileDescriptor.h"
#include "runtime/processes/Pipe.h"

namespace qor::hosting {

/// Lets a process that a signal ends (SIGTERM, SIGINT, SIGHUP) put its things in order first. The signals are
/// blocked in the thread that makes it and in those that this one starts later; a thread of its own takes the
/// first one, calls `prepare`, which has to be bounded, and then ends the process by that very signal. A
/// signal that was ignored before is still ignored.
class EndingSignals {
 public:
  /// Throws std::system_error.
  explicit EndingSignals(std::function<void()> prepare);
  /// Joins the thread; waits for `prepare` if that is under way.
  ~EndingSignals();
  EndingSignals(const EndingSignals&) = delete;
  EndingSignals& operator=(const EndingSignals&) = delete;

 private:
  void attend();

  const std::function<void()> prepare_;
  sigset_t set_{};
  base::FileDescriptor signals_;
  /// A byte in it ends the thread. To close it would not: a copy of this process that an engine has made with
  /// fork() holds the other end open.
  processes::Pipe end_;
  std::thread thread_;
};

}  // namespace qor::hosting
