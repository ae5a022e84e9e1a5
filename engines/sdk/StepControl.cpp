#include "engines/sdk/StepControl.h"

#include <fmt/format.h>

#include <utility>

#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

StepControl::StepControl(std::string step) : step_(std::move(step)) {}

StepControl::Serving::Serving(StepControl& control, Handler handler) : control_(control) {
  const base::Lock lock(control_.mutex_);
  control_.thread_ = std::this_thread::get_id();
  control_.handler_ = std::move(handler);
}

StepControl::Serving::~Serving() {
  const base::Lock lock(control_.mutex_);
  control_.thread_ = {};
  control_.handler_ = nullptr;
}

void StepControl::ExecuteCommand(const tamb::ICommandMessage& command) {
  {
    const base::Lock lock(mutex_);
    if (thread_ != std::this_thread::get_id()) {
      throw tamb::TAMBRuntimeError(
          fmt::format("Step {:?}: only the engine's run executes its commands", step_));
    }
  }
  handler_(command);  // Only this thread changes it now.
}

}  // namespace qor::engines
