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

/// The target of a run's commands. Failures are TAMBRuntimeErrors.
class MediaCommandTarget {
 public:
  virtual ~MediaCommandTarget() = default;
  /// Processes the media before that time, as far as it has been decoded.
  virtual void advanceTo(const tamb::MediaTime& time) = 0;
  virtual void commandFilter(const std::string& target, const std::string& command,
                             const std::string& argument) = 0;
  virtual void stop() = 0;
  /// Seconds of media.
  virtual double position() const = 0;
};

/// Executes the commands of a run at their media times, and answers each of them. Used on the run's thread
/// only.
class MediaCommands {
 public:
  MediaCommands(tamb::ICommandProcessorBackEnd& processor, StepControl& control,
                const StepNotifications& notifications, RunWatch& watch);

  /// Null before and after the run; commands then fail.
  void setTarget(MediaCommandTarget* target) { target_ = target; }

  /// Waits at the start of the media for a command that continues the run. Throws as executeUntil does.
  void waitAtStart();

  /// Executes the commands due by then, in the order of their media times; does not return while the run is
  /// paused. Rethrows exceptions that end the run.
  void executeUntil(double seconds);

  /// Answers every waiting and every future command with a failure.
  void refuseRest(const std::string& reason);

  /// The total duration of all pauses.
  RunWatch::Clock::duration paused() const { return pausedTime_; }

 private:
  using Command = std::shared_ptr<const tamb::ICommandMessage>;

  void receive(const tamb::ICommandMessage& command);
  /// The due commands that come before that one; all due commands if it is null.
  void executeDeferred(const tamb::ICommandMessage* before);
  void execute(const tamb::ICommandMessage& command);
  void perform(const tamb::ICommandMessage& command);
  void defer(const tamb::ICommandMessage& command);
  /// Must not be called while a command is executed: pauses do not nest.
  void waitWhilePaused();
  /// Whether the command ends a pause regardless of its time.
  static bool isUrgent(const tamb::ICommandMessage& command);
  bool isDue(const tamb::ICommandMessage& command) const;

  tamb::ICommandProcessorBackEnd& processor_;
  const StepNotifications& notifications_;
  RunWatch& watch_;
  MediaCommandTarget* target_ = nullptr;
  double limit_ = 0;
  bool paused_ = false;
  bool stopping_ = false;
  /// Commands taken from the command processor during a pause, before their time; ordered by time.
  std::deque<Command> deferred_;
  std::string refusal_;
  std::exception_ptr failure_;
  RunWatch::Clock::duration pausedTime_{0};
  const StepControl::Serving serving_;
};

}  // namespace qor::engines
