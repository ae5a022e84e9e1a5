#include "hosting/ServedEngine.h"

#include <string>

#include "engines/sdk/IAbandonable.h"
#include "runtime/tamb/CurrentException.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::hosting {

void ServedEngine::Run() {
  report_({.event = EngineEvent::Running});
  notifications_->beginRun();
  const auto end = [this] {
    if (processIsEnding_) return;
    report_({.event = EngineEvent::Idle, .end = notifications_->endRun(defaultEnd())});
  };
  try {
    engine().Run();
  } catch (...) {
    const std::string reason = tamb::CurrentExceptionText();
    notifications_->publishFailure(reason);
    end();
    // Whatever it was: the control channel expects no exceptions of other kinds.
    throw tamb::TAMBRuntimeError(reason);
  }
  end();
}

void ServedEngine::RequestStop() {
  stopWasRequested_ = true;
  report_({.event = EngineEvent::StopRequested});
  engine().RequestStop();
}

void ServedEngine::leave(const std::string& reason) {
  if (!stopWasRequested_) {
    {
      const base::Lock lock(mutex_);
      abandonReason_ = reason;
    }
    abandon(engine(), reason);
  }
  engine().RequestStop();
}

RunEnd ServedEngine::defaultEnd() const {
  if (stopWasRequested_) return {.kind = RunEnd::Kind::Stopped};
  const base::Lock lock(mutex_);
  if (abandonReason_) return {RunEnd::Kind::Failed, *abandonReason_};
  return {.kind = RunEnd::Kind::Finished};
}

void abandon(tamb::IEngineFrontEnd& engine, const std::string& reason) {
  if (auto* const abandonable = dynamic_cast<engines::IAbandonable*>(&engine)) abandonable->Abandon(reason);
}

}  // namespace qor::hosting
