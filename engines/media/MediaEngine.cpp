#include "engines/media/MediaEngine.h"

#include <fmt/format.h>

#include <utility>

#include "engines/media/FfmpegLog.h"
#include "engines/media/MediaCommands.h"
#include "engines/media/MediaManual.h"
#include "engines/media/MediaReports.h"
#include "engines/media/MediaRun.h"
#include "engines/media/StoppedEarly.h"
#include "runtime/tamb/CurrentException.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

using tamb::EngineStatus;
using tamb::TAMBRuntimeError;

MediaEngine::MediaEngine(std::shared_ptr<tamb::ICommandProcessorBackEnd> commands)
    : EngineBase("MediaEngine", mediaManual().step, std::move(commands)) {
  sendFfmpegLogToFramework();
}

EngineManual MediaEngine::manual() { return mediaManual(); }

void MediaEngine::AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> description) {
  requireNotRun("a description");
  if (!description) {
    throw TAMBRuntimeError("MediaEngine: the description is empty");
  }
  document_ = readMediaDocument(description->GetDescription());
}

tamb::TimeInfo MediaEngine::GetCurrentTimeInfo(const std::string& name) const {
  if (name != step()) {
    throw TAMBRuntimeError(fmt::format("MediaEngine: unknown time {:?}; expected {:?}", name, step()));
  }
  return {inMilliseconds(position_.position), inMilliseconds(position_.duration)};
}

void MediaEngine::runOnce() {
  const auto published = notifications();
  MediaReports reports(published);
  MediaCommands mediaCommands(commands(), control(), published, watch());
  MediaResult result;
  try {
    if (!document_) {
      throw TAMBRuntimeError("Nothing to run: no description was added");
    }
    // The run is destroyed before its end is reported, so that files are closed and an incomplete output is
    // removed by then.
    result = MediaRun(*document_, mediaCommands, reports, watch(), position_).run();
  } catch (const StoppedEarly&) {
    if (watch().abandoned()) return endAbandonedRun(mediaCommands, reports);
    result.stopped = true;
  } catch (...) {
    const auto reason = tamb::CurrentExceptionText();
    mediaCommands.refuseRest("the run has failed: " + reason);
    conclude(EngineStatus::Failed, reason);
    reports.failed(position_.position, reason);
    return;
  }
  mediaCommands.refuseRest(fmt::format("the run has ended at {:.3f} s", result.duration));
  conclude(EngineStatus::Stopped, "");
  reports.finished(result);
}

void MediaEngine::endAbandonedRun(MediaCommands& mediaCommands, const MediaReports& reports) {
  const auto reason = watch().abandonReason();
  mediaCommands.refuseRest("the run was abandoned");
  conclude(EngineStatus::Failed, reason);
  if (!reason.empty()) reports.failed(position_.position, reason);
}

}  // namespace qor::engines
