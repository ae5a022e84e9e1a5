#pragma once

#include <sys/types.h>

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "hosting/EngineProcess.h"
#include "runtime/processes/Pipe.h"

namespace qor::hosting {

/// The process of one engine as its supervisor, its parent, sees it: how far it is, what it writes on its
/// standard output and error streams, which goes to our standard error stream, and how it ends. One thread.
class EngineChild {
 public:
  using Clock = std::chrono::steady_clock;

  /// The child's end of the line to its parent. Any thread.
  class Line {
   public:
    explicit Line(processes::Descriptor pipe) : pipe_(std::move(pipe)) {}
    void tell(EngineEvent event) const;
    /// The engine cannot be made, or is not ready in time.
    void tellFailure(const std::string& reason) const;
    /// The engine has reported that its run failed.
    void tellRunFailure(const std::string& reason) const;

   private:
    void write(const std::string& line) const;

    processes::Descriptor pipe_;
  };

  /// Forks; `life` is the child's whole life, to its exit code. Throws std::system_error.
  explicit EngineChild(const std::function<int(const Line&)>& life);
  /// Kills and reaps it, should it still be there.
  ~EngineChild();
  EngineChild(const EngineChild&) = delete;
  EngineChild& operator=(const EngineChild&) = delete;

  pid_t process() const { return process_; }
  bool isThere() const { return isThere_; }
  bool isReady() const { return isReady_; }
  bool isLeaving() const { return isLeaving_; }
  /// As waitpid has it, once it is not there any more.
  int status() const { return status_; }
  /// What kept it from being ready, in its own words, with the errors that its log ends in once the engine is
  /// made; empty when nothing did.
  std::string startFailure() const;
  /// Whether its engine's run has begun, has ended since it was asked to, and what it failed with, which is
  /// empty when it did not.
  bool hasRun() const { return hasRun_; }
  bool wasStopped() const { return wasStopped_; }
  const std::string& runFailure() const { return runFailure_; }
  /// How it died, with the last lines of its log, in one line.
  std::string cause() const;

  /// Waits for anything to be said or for `alsoAwaited`, a descriptor, to be readable, at most until then,
  /// and takes in what was said.
  void await(Clock::time_point deadline, int alsoAwaited);
  /// Notices whether it has been stopped or continued or has ended, and kills it when it is overdue: 5 s
  /// after it, or a run of its engine, was asked to end, and when it has been kept stopped for 10 s. To be
  /// called after every SIGCHLD, and before the next wait.
  void attend();
  /// Asks it to end; again means nothing.
  void end();

 private:
  void takeEvents();
  void take(EngineEvent event);
  /// Passes on what the child writes on one of its streams.
  void passOn(processes::LineReader& stream);
  void drain();
  void noticeChanges();
  void killWhenOverdue();

  pid_t process_ = 0;
  processes::LineReader events_{processes::Descriptor()};
  processes::LineReader output_{processes::Descriptor()};
  processes::LineReader errors_{processes::Descriptor()};
  bool isThere_ = true;
  bool isMade_ = false;
  bool isReady_ = false;
  bool isRunning_ = false;
  bool isStopRequested_ = false;
  bool hasRun_ = false;
  bool wasStopped_ = false;
  bool isLeaving_ = false;
  int status_ = 0;
  std::string failure_;
  std::string runFailure_;
  std::deque<std::string> lastLines_;
  /// Since when what is not to last has lasted.
  std::optional<Clock::time_point> askedToEnd_;
  std::optional<Clock::time_point> stopIgnored_;
  std::optional<Clock::time_point> frozen_;
  std::string whyKilled_;
};

}  // namespace qor::hosting
