#pragma once

#include <sys/types.h>

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "runtime/processes/Pipe.h"

namespace qor::programs {

/// The process of one engine as its supervisor, its parent, sees it: how far it is, what it writes on its
/// standard error stream, which is passed on, and how it ends. One thread.
class EngineChild {
 public:
  using Clock = std::chrono::steady_clock;

  /// What a child tells its parent of its life.
  class Events {
   public:
    explicit Events(processes::Descriptor pipe) : pipe_(std::move(pipe)) {}
    void ready() const { say("ready"); }
    void leaving() const { say("leaving"); }
    void failed(const std::string& reason) const { say("failed " + reason); }

   private:
    void say(const std::string& line) const;

    processes::Descriptor pipe_;
  };

  /// Forks; `life` is the child's whole life, to its exit code. Throws std::system_error.
  explicit EngineChild(const std::function<int(const Events&)>& life);
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
  /// What it failed with, in its own words; empty when it did not.
  const std::string& failure() const { return failure_; }
  /// How it died, with the last lines of its log, in one line.
  std::string cause() const;

  /// Waits for anything to happen, at most until then, and takes it in. Ends early when `alsoAwaited`, a
  /// descriptor, is readable. Kills a child that was asked to end 5 s ago, or has been kept stopped for 10 s.
  void attend(Clock::time_point deadline, int alsoAwaited);
  /// Asks it to end; again means nothing.
  void end();

 private:
  void takeEvents();
  void passErrorsOn();
  void drain();
  void noticeChange();
  void killWhenOverdue();

  pid_t process_ = 0;
  processes::LineReader events_{processes::Descriptor()};
  processes::LineReader errors_{processes::Descriptor()};
  bool isThere_ = true;
  bool isReady_ = false;
  bool isLeaving_ = false;
  int status_ = 0;
  std::string failure_;
  std::deque<std::string> lastErrors_;
  std::optional<Clock::time_point> askedToEnd_;
  std::optional<Clock::time_point> stopped_;
  std::string whyKilled_;
};

}  // namespace qor::programs
