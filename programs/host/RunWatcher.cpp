#include "programs/host/RunWatcher.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "engines/sdk/NotificationNames.h"
#include "tamb/INotificationMessage.h"
#include "tamb/IParametersCollection.h"

namespace qor::programs {

namespace {

namespace names = engines::names;

/// Time limit for the delivery of one notification: a terminal may be paused.
constexpr std::chrono::seconds longestDelivery{30};
constexpr const char* stoppedByOthers =
    "the engine stopped its run, but neither this host nor a command requested that: its process was "
    "asked to exit, or received nothing from this host for 10 s (was this host suspended?)";

/// Whether the value exists and has that type: an engine may send anything.
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
  // After the delivery, since waitForEnd() may then return; also when the delivery throws.
  struct Noting {
    RunWatcher& watcher;
    const tamb::INotificationMessage& notification;
    ~Noting() { watcher.note(notification); }
  };
  begin();
  const Noting noting{*this, *notification};
  next_->OnNotification(notification);
}

void RunWatcher::begin() {
  const base::Lock lock(mutex_);
  ++underWay_;
  lastChange_ = std::chrono::steady_clock::now();
}

void RunWatcher::note(const tamb::INotificationMessage& notification) {
  const base::Lock lock(mutex_);
  --underWay_;
  lastChange_ = std::chrono::steady_clock::now();
  changed_.notify_all();
  if (last_) return;
  const std::string& line = notification.GetNotificationLine();
  const unsigned int id = notification.GetCommandId();
  if (line == names::commandDone && textIn(notification, names::command) == "Stop") stoppedByCommand_ = true;
  if (line == names::commandFailed && id >= 1 && id <= commandCount_ && ++failedCommands_ == 1) {
    firstFailure_ = fmt::format("command {} (\"{}\"): {}", id, textIn(notification, names::command),
                                textIn(notification, names::reason));
  }
  if (line == names::finished) last_ = isSet(notification, names::stopped) ? Last::Stopped : Last::Finished;
  if (line == names::failed) last_ = Last::Failed;
  if (line == names::engineDied) last_ = Last::EngineDied;
}

std::optional<RunWatcher::End> RunWatcher::waitForEnd(std::chrono::milliseconds silence, bool stopRequested) {
  base::Lock lock(mutex_);
  const auto start = std::chrono::steady_clock::now();
  while (!last_) {
    const auto deadline =
        underWay_ > 0 ? lastChange_ + longestDelivery : std::max(start, lastChange_) + silence;
    if (std::chrono::steady_clock::now() >= deadline) return std::nullopt;
    lock.waitUntil(changed_, deadline);
  }
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
