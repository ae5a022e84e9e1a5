#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "hosting/EngineReport.h"
#include "hosting/ForwardingEngine.h"
#include "hosting/RunNotifications.h"
#include "runtime/base/Mutex.h"

namespace qor::hosting {

/// An engine as its host controls it. Reports runs and stop requests to whoever supervises the process, and
/// has every run end with a notification. Any thread.
class ServedEngine final : public ForwardingEngine {
 public:
  using Report = std::function<void(const EngineReport& report)>;

  /// `report` is called on the thread of the call that the report is about. The engine's hub has to be
  /// `notifications`. Once `processIsEnding`, the death of the process is the end of its run: the run that
  /// ends ahead of it publishes and reports none.
  ServedEngine(std::shared_ptr<tamb::IEngineFrontEnd> engine, std::shared_ptr<RunNotifications> notifications,
               Report report, const std::atomic<bool>& processIsEnding)
      : ForwardingEngine(std::move(engine)),
        notifications_(std::move(notifications)),
        report_(std::move(report)),
        processIsEnding_(processIsEnding) {}

  /// The engine's run. Its end has been published, and then reported, when this returns or throws. Whatever
  /// the run throws, this throws a TAMBRuntimeError.
  void Run() override;
  void RequestStop() override;

  /// Stops the run without a host. Unless a host has asked it to stop, nobody has asked for its result, or
  /// waits for it: it is abandoned, and fails for that reason.
  void leave(const std::string& reason);

 private:
  /// How a run ends now that does not publish its end.
  RunEnd defaultEnd() const;

  const std::shared_ptr<RunNotifications> notifications_;
  const Report report_;
  const std::atomic<bool>& processIsEnding_;
  std::atomic<bool> stopWasRequested_{false};
  mutable base::Mutex mutex_;
  std::optional<std::string> abandonReason_ QOR_GUARDED_BY(mutex_);
};

/// Abandons the run of an engine that can be abandoned; see engines::IAbandonable.
void abandon(tamb::IEngineFrontEnd& engine, const std::string& reason);

}  // namespace qor::hosting
