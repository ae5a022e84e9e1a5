#include "engines/media/MediaCommands.h"

#include <fmt/format.h>

#include <algorithm>

#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/CommandTime.h"
#include "runtime/tamb/CurrentException.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

namespace {

using tamb::CommandTime;
using tamb::TAMBRuntimeError;

/// Poll interval for commands during a pause, because the command processor does not notify of new ones.
constexpr std::chrono::milliseconds pauseInterval{20};

std::string argument(const tamb::ICommandMessage& command, const std::string& key) {
  const auto arguments = command.GetCommandArgs();
  if (!arguments || !arguments->HasKey(key)) {
    throw TAMBRuntimeError(
        fmt::format(R"(missing argument {:?}; expected "target", "command" and "argument")", key));
  }
  return arguments->GetUTF8String(key);
}

double dueTime(const tamb::ICommandMessage& command) { return CommandTime(command.GetTime()).Seconds(); }

}  // namespace

MediaCommands::MediaCommands(tamb::ICommandProcessorBackEnd& processor, StepControl& control,
                             const StepNotifications& notifications, RunWatch& watch)
    : processor_(processor),
      notifications_(notifications),
      watch_(watch),
      serving_(control, [this](const auto& command) { receive(command); }) {}

void MediaCommands::waitAtStart() {
  paused_ = true;
  waitWhilePaused();
  if (failure_) {
    std::rethrow_exception(failure_);
  }
}

void MediaCommands::executeUntil(double seconds) {
  limit_ = seconds;
  processor_.ExecuteAllCommandsScheduledAt(seconds);
  executeDeferred(nullptr);
  while (paused_) {
    waitWhilePaused();
    // A run that is stopped during a pause ends there.
    if (!watch_.stopRequested()) {
      executeDeferred(nullptr);
    }
  }
  if (failure_) {
    std::rethrow_exception(failure_);
  }
}

void MediaCommands::refuseRest(const std::string& reason) {
  refusal_ = reason;
  executeDeferred(nullptr);
  processor_.ExecuteAllCommands();
}

void MediaCommands::receive(const tamb::ICommandMessage& command) {
  // Deferred commands were pushed earlier, so they precede new ones of the same time.
  executeDeferred(&command);
  if (isDue(command) || (paused_ && isUrgent(command))) {
    execute(command);
  } else {
    defer(command);
  }
}

void MediaCommands::executeDeferred(const tamb::ICommandMessage* before) {
  // Evaluated for each command, because a pause changes which commands are due.
  const auto isNext = [&](const tamb::ICommandMessage& command) {
    return isDue(command) &&
           (before == nullptr || CommandTime(command.GetTime()) <= CommandTime(before->GetTime()));
  };
  while (!deferred_.empty() && isNext(*deferred_.front())) {
    const auto command = deferred_.front();
    deferred_.pop_front();
    execute(*command);
  }
}

void MediaCommands::execute(const tamb::ICommandMessage& command) {
  if (!refusal_.empty() || target_ == nullptr) {
    return notifications_.commandFailed(command, target_ == nullptr ? 0 : target_->position(),
                                        refusal_.empty() ? "nothing is running" : refusal_);
  }
  try {
    // Commands that end a pause take effect at the current position; after a stop, no media is due.
    if (!stopping_ && !(paused_ && isUrgent(command))) {
      target_->advanceTo(command.GetTime());
    }
  } catch (...) {
    // The command processor would only log the exception, but it ends the run.
    failure_ = std::current_exception();
    refusal_ = "the run has failed: " + tamb::CurrentExceptionText();
    return notifications_.commandFailed(command, target_->position(), refusal_);
  }
  try {
    perform(command);
  } catch (const std::exception& error) {
    return notifications_.commandFailed(command, target_->position(), error.what());
  }
  notifications_.commandDone(command, target_->position());
}

void MediaCommands::perform(const tamb::ICommandMessage& command) {
  const auto& name = command.GetCommandName();
  if (stopping_) {
    throw TAMBRuntimeError("an earlier command stopped the run");
  }
  if (name == "FilterCommand") {
    const auto target = argument(command, "target");
    const auto filterCommand = argument(command, "command");
    target_->commandFilter(target, filterCommand, argument(command, "argument"));
  } else if (name == "Pause") {
    if (paused_) {
      throw TAMBRuntimeError("the run is already paused");
    }
    paused_ = true;
  } else if (name == "Resume") {
    if (!paused_) {
      throw TAMBRuntimeError("the run is not paused");
    }
    paused_ = false;
  } else if (name == "Stop") {
    target_->stop();
    stopping_ = true;
    paused_ = false;
  } else {
    throw TAMBRuntimeError(fmt::format(
        R"(unknown command {:?}; expected one of "FilterCommand", "Pause", "Resume", "Stop")", name));
  }
}

void MediaCommands::defer(const tamb::ICommandMessage& command) {
  const CommandTime time(command.GetTime());
  const auto place = std::upper_bound(
      deferred_.begin(), deferred_.end(), time,
      [](const CommandTime& left, const Command& right) { return left < CommandTime(right->GetTime()); });
  deferred_.insert(place, std::make_shared<tamb::CommandMessage>(tamb::CommandFields{
                              .commandArgs = command.GetCommandArgs(),
                              .time = command.GetTime(),
                              .commandName = command.GetCommandName(),
                              .commandId = command.GetCommandId(),
                              .workflowManagerId = command.GetWorkflowManagerId(),
                              .engineId = command.GetEngineId(),
                              .stepId = command.GetStepId(),
                          }));
}

void MediaCommands::waitWhilePaused() {
  const auto begin = RunWatch::Clock::now();
  while (paused_ && !failure_ && !watch_.stopRequested()) {
    watch_.beat();
    const auto urgent = std::find_if(deferred_.begin(), deferred_.end(),
                                     [](const Command& command) { return isUrgent(*command); });
    if (urgent != deferred_.end()) {
      const auto command = *urgent;
      deferred_.erase(urgent);
      execute(*command);
      continue;
    }
    processor_.ExecuteAllCommands();
    if (paused_) {
      watch_.sleepUntil(RunWatch::Clock::now() + pauseInterval);
    }
  }
  paused_ = false;
  pausedTime_ += RunWatch::Clock::now() - begin;
}

bool MediaCommands::isUrgent(const tamb::ICommandMessage& command) {
  return command.GetCommandName() == "Resume" || command.GetCommandName() == "Stop";
}

bool MediaCommands::isDue(const tamb::ICommandMessage& command) const {
  // Refused commands are answered at once.
  return !refusal_.empty() || dueTime(command) <= (paused_ ? std::min(limit_, target_->position()) : limit_);
}

}  // namespace qor::engines
