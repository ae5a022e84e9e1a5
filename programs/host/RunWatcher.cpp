#include "programs/host/RunWatcher.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "tamb/INotificationMessage.h"
#include "tamb/IParametersCollection.h"

namespace qor::programs {

namespace {

constexpr const char* stoppedByOthers =
    "the engine stopped its run, but neither this host nor a command had asked for that: its process was "
    "told to "
    "end, or heard nothing from this host for 10 s (was this host stopped or suspended?)";

/// Whether the value is there, and of that type: an engine may send anything.
bool holds(const tamb::IParametersCollectionInstance& values, const std::string& key, tamb::TambType type) {
  return std::ranges::any_of(values.GetKeysAndTypes(),
                             [&](const auto& held) { return held.first == key && held.second == type; });
}

std::string textIn(const tamb::INotificationMessage& notification, const std::string& key) {
  const auto values = notification.GetNotificationObject();
  return values && holds(*values, key, tamb::TambType::UTF8String) ? values->GetUTF8String(key)
                                                                   : std::string();
}

bool isSet(const tamb::INotificationMessage& notification, const std::string& key) {
  const auto values = notification.GetNotificationObject();
  return values && holds(*values, key, tamb::TambType::Bool) && values->GetBool(key);
}

}  // namespace

RunWatcher::RunWatcher(std::shared_ptr<tamb::INotificationCallback> next, std::size_t commandCount)
    : next_(std::move(next)), commandCount_(commandCount) {}

void RunWatcher::OnNotification(std::shared_ptr<const tamb::INotificationMessage> notification) {
  // Only once it has been passed on: whoever waits for the end may then go. But also when that fails.
  struct Noting {
    RunWatcher& watcher;
    const tamb::INotificationMessage& notification;
    ~Noting() { watcher.note(notification); }
  } const noting{*this, *notification};
  next_->OnNotification(notification);
}

void RunWatcher::note(const tamb::INotificationMessage& notification) {
  const std::lock_guard lock(mutex_);
  if (last_) return;
  const std::string& line = notification.GetNotificationLine();
  const unsigned int id = notification.GetCommandId();
  if (line == "CommandDone" && textIn(notification, "command") == "Stop") stoppedByCommand_ = true;
  if (line == "CommandFailed" && id >= 1 && id <= commandCount_ && ++failedCommands_ == 1) {
    firstFailure_ = fmt::format("command {} (\"{}\"): {}", id, textIn(notification, "command"),
                                textIn(notification, "reason"));
  }
  if (line == "Finished") last_ = isSet(notification, "stopped") ? Last::Stopped : Last::Finished;
  if (line == "Failed") last_ = Last::Failed;
  if (line == "EngineDied") last_ = Last::EngineDied;
  if (last_) ended_.notify_all();
}

std::optional<RunWatcher::End> RunWatcher::waitForEnd(std::chrono::milliseconds time, bool stopRequested) {
  std::unique_lock lock(mutex_);
  if (!ended_.wait_for(lock, time, [this] { return last_.has_value(); })) return std::nullopt;
  return endOf(*last_, stopRequested);
}

RunWatcher::End RunWatcher::endOf(Last last, bool stopRequested) const {
  if (last == Last::Failed) return {.outcome = Outcome::Failed};
  if (last == Last::EngineDied) return {.outcome = Outcome::EngineDied};
  if (last == Last::Stopped && !stoppedByCommand_) {
    if (stopRequested) return {.outcome = Outcome::Interrupted};
    return {.outcome = Outcome::Failed, .remark = stoppedByOthers};
  }
  if (failedCommands_ == 0) return {.outcome = Outcome::Finished};
  return {.outcome = Outcome::CommandFailed,
          .remark = fmt::format("the run finished, but {} of {} command{} failed{}; {}", failedCommands_,
                                commandCount_, commandCount_ == 1 ? "" : "s",
                                failedCommands_ > 1 ? ", first" : "", firstFailure_)};
}

}  // namespace qor::programs
