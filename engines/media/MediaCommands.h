#pragma once

#include <chrono>
#include <deque>
#include <exception>
#include <memory>
#include <string>

#include "engines/sdk/RunWatch.h"
#include "engines/sdk/StepControl.h"
#include "engines/sdk/StepNotifications.h"
#include "tamb/ICommandProcessor.h"

namespace qor::engines {

/// What the commands of a run act upon. Failures are TAMBRuntimeErrors.
class MediaCommandTarget {
 public:
  virtual ~MediaCommandTarget() = default;
  /// Processes the media before that time, as far as it is at hand.
  virtual void advanceTo(const tamb::MediaTime& time) = 0;
  virtual void commandFilter(const std::string& target, const std::string& command,
                             const std::string& argument) = 0;
  virtual void stop() = 0;
  /// Seconds of media.
  virtual double position() const = 0;
};

/// Executes the commands of a run at their media times, and answers each of them. Belongs to the run's
/// thread, like everything of the run.
class MediaCommands {
 public:
  MediaCommands(tamb::ICommandProcessorBackEnd& processor, StepControl& control,
                const StepNotifications& notifications, RunWatch& watch);

  /// Nobody, at first and at last: commands then fail.
  void setTarget(MediaCommandTarget* target) { target_ = target; }

  /// Waits at the start of the media for a command that lets the run go on. Throws as executeUntil does.
  void waitAtStart();

  /// Executes what is due by then, in the order of the media times; while a command has the run paused, it
  /// does not return. Rethrows what keeps the run from going on.
  void executeUntil(double seconds);

  /// Answers every command that waits with a failure, and those that come yet.
  void refuseRest(const std::string& reason);

  /// How long the run has been paused altogether.
  RunWatch::Clock::duration paused() const { return pausedTime_; }

 private:
  using Command = std::shared_ptr<const tamb::ICommandMessage>;

  void receive(const tamb::ICommandMessage& command);
  /// Those that are due and come before that one; all that are due without one.
  void executeDeferred(const tamb::ICommandMessage* before);
  void execute(const tamb::ICommandMessage& command);
  void perform(const tamb::ICommandMessage& command);
  void defer(const tamb::ICommandMessage& command);
  /// Never called while a command is executed: a pause within a pause would not be one.
  void waitWhilePaused();
  /// What ends a pause whatever its time is.
  static bool isUrgent(const tamb::ICommandMessage& command);
  bool isDue(const tamb::ICommandMessage& command) const;

  tamb::ICommandProcessorBackEnd& processor_;
  const StepNotifications& notifications_;
  RunWatch& watch_;
  MediaCommandTarget* target_ = nullptr;
  double limit_ = 0;
  bool paused_ = false;
  bool stopping_ = false;
  /// Taken from the command processor during a pause, before their time; in the order of their times.
  std::deque<Command> deferred_;
  std::string refusal_;
  std::exception_ptr failure_;
  RunWatch::Clock::duration pausedTime_{0};
  const StepControl::Serving serving_;
};

}  // namespace qor::engines
