#pragma once

#include <functional>
#include <string>
#include <thread>

#include "runtime/base/Mutex.h"
#include "tamb/IBasicControl.h"

namespace qor::engines {

/// Passes the commands of one step to the current run. The command processor owns it, and may keep it longer
/// than the engine lives.
class StepControl : public tamb::IBasicControl {
 public:
  using Handler = std::function<void(const tamb::ICommandMessage&)>;

  explicit StepControl(std::string step);

  /// During the lifetime of this object, the handler receives the commands that the creating thread executes.
  class Serving {
   public:
    Serving(StepControl& control, Handler handler);
    ~Serving();
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;

   private:
    StepControl& control_;
  };

  /// Throws TAMBRuntimeError on any thread but the run's, because only that thread may access the media.
  void ExecuteCommand(const tamb::ICommandMessage& command) override;

 private:
  const std::string step_;
  base::Mutex mutex_;
  std::thread::id thread_ QOR_GUARDED_BY(mutex_);
  /// Only the thread that executes commands changes it, with the mutex held; that thread reads it without the
  /// mutex.
  Handler handler_;
};

}  // namespace qor::engines
