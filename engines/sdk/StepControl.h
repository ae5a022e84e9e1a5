#pragma once

#include <functional>
#include <string>
#include <thread>

#include "runtime/base/Mutex.h"
#include "tamb/IBasicControl.h"

namespace qor::engines {

/// Hands the commands of one step to the run that is under way. The command processor owns it, and may keep
/// it for longer than the engine lives.
class StepControl : public tamb::IBasicControl {
 public:
  using Handler = std::function<void(const tamb::ICommandMessage&)>;

  explicit StepControl(std::string step);

  /// While this lives, the handler gets the commands that its thread executes.
  class Serving {
   public:
    Serving(StepControl& control, Handler handler);
    ~Serving();
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;

   private:
    StepControl& control_;
  };

  /// Throws TAMBRuntimeError on any thread but the run's: the media is that thread's alone.
  void ExecuteCommand(const tamb::ICommandMessage& command) override;

 private:
  const std::string step_;
  base::Mutex mutex_;
  std::thread::id thread_ QOR_GUARDED_BY(mutex_);
  /// Changed with the mutex held, by the thread that has commands executed: that one reads it without.
  Handler handler_;
};

}  // namespace qor::engines
