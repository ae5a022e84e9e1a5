#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosting/RunEnd.h"
#include "runtime/base/Mutex.h"
#include "tamb/INotificationHub.h"

namespace qor::hosting {

/// The hub of an engine in its process. Passes everything on, and has the last notification of every run be
/// its end: what the engine publishes as "Finished" or "Failed", or, when it publishes neither, one of these
/// in its name. Any thread.
class RunNotifications final : public tamb::INotificationHubBackEnd {
 public:
  RunNotifications(std::shared_ptr<tamb::INotificationHubBackEnd> hub, std::string workflowManagerId,
                   unsigned int engineId);

  void PushNotifications(
      std::vector<std::shared_ptr<const tamb::INotificationMessage>> notifications) override;
  void PushNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override;

  /// Forgets how the run before ended.
  void beginRun();
  /// Publishes "Failed" with the reason, unless the run's end has been published. Does not throw: what keeps
  /// it from being published is logged.
  void publishFailure(const std::string& reason);
  /// How the run ended: as the engine has published it, otherwise so, which is published then. Does not
  /// throw.
  RunEnd endRun(const RunEnd& otherwise);

 private:
  /// Does not throw.
  void publish(const RunEnd& end);
  std::optional<RunEnd> published() const;

  const std::shared_ptr<tamb::INotificationHubBackEnd> hub_;
  const std::string workflowManagerId_;
  const unsigned int engineId_;
  mutable base::Mutex mutex_;
  /// The first one of the run that was published.
  std::optional<RunEnd> end_ QOR_GUARDED_BY(mutex_);
};

/// The notification that an engine's run ended so. Any thread.
std::shared_ptr<const tamb::INotificationMessage> notificationOf(const RunEnd& end,
                                                                 const std::string& workflowManagerId,
                                                                 unsigned int engineId);

}  // namespace qor::hosting
