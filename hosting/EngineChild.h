#pragma once

#include <sys/types.h>

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "hosting/EngineReport.h"
#include "hosting/EngineReporter.h"
#include "hosting/LeftProcesses.h"
#include "runtime/base/FileDescriptor.h"
#include "runtime/processes/Pipe.h"

namespace qor::hosting {

/// The process of one engine as its supervisor, its parent, sees it: its reports, its standard output and
/// error streams, which go to our standard error stream, and how it exits. One thread.
class EngineChild {
 public:
  using Clock = std::chrono::steady_clock;

  /// Forks. `life` is the child's whole life, to its exit code; `name` is its name in the process table.
  /// Throws std::system_error.
  EngineChild(const std::string& name, const std::function<int(const EngineReporter&)>& life);
  /// Kills and reaps it, with those that it leaves, should it still be alive: within 6 s.
  ~EngineChild();
  EngineChild(const EngineChild&) = delete;
  EngineChild& operator=(const EngineChild&) = delete;

  pid_t process() const { return process_; }
  bool isAlive() const { return isAlive_; }
  bool isReady() const { return isReady_; }
  /// Whether it has reported that it will not be ready.
  bool hasFailed() const { return !failure_.empty(); }
  /// Whether it has its end of the pipe for reports open, as far as is known.
  bool canReport() const { return reports_.isOpen(); }
  bool isLeaving() const { return isLeaving_; }
  /// As waitpid reports it, once it is not alive any more.
  int status() const { return status_; }
  /// Why it did not become ready, as it reported it, with the errors that its log ends in once the engine is
  /// made; empty when it reported nothing.
  std::string startFailure() const;
  /// How its engine's run ended; "unused" before there was one.
  const RunEnd& runEnd() const { return runEnd_; }
  /// How it died, with the last lines of its log, in one line.
  std::string cause() const;

  /// Waits for output of the child or for `alsoAwaited`, a descriptor, to be readable, at most until then,
  /// and processes the output.
  void await(Clock::time_point deadline, int alsoAwaited);
  /// Notices whether it was stopped or continued or has exited, and kills it when it is overdue: 5 s after
  /// it, or a run of its engine, was asked to end, and when it has been suspended for 10 s. When it has
  /// died, the processes that it leaves are killed as well. To be called after every SIGCHLD, and before the
  /// next wait.
  void processPendingEvents();
  /// Asks it to exit. Repeated calls do nothing.
  void requestExit();

 private:
  void takeReports();
  void take(const EngineReport& report);
  /// Passes on what the child has written to one of its streams.
  void passOn(processes::LineReader& stream);
  /// Takes what is left of its output, once it has exited.
  void drain();
  void noticeChanges();
  void killWhenOverdue();

  const LeftProcesses left_;
  pid_t process_ = 0;
  processes::LineReader reports_{base::FileDescriptor()};
  processes::LineReader output_{base::FileDescriptor()};
  processes::LineReader errors_{base::FileDescriptor()};
  bool isAlive_ = true;
  bool isMade_ = false;
  bool isReady_ = false;
  bool isRunning_ = false;
  bool isStopRequested_ = false;
  bool isLeaving_ = false;
  int status_ = 0;
  std::string failure_;
  RunEnd runEnd_;
  std::deque<std::string> lastLines_;
  /// Start of each bounded wait; empty when not waiting.
  std::optional<Clock::time_point> askedToExit_;
  std::optional<Clock::time_point> stopIgnored_;
  std::optional<Clock::time_point> frozen_;
  std::string whyKilled_;
};

}  // namespace qor::hosting
