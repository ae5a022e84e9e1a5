#pragma once

#include <memory>
#include <optional>
#include <string>

#include "engines/media/MediaDocument.h"
#include "engines/media/MediaPosition.h"
#include "engines/sdk/EngineBase.h"
#include "engines/sdk/EngineManual.h"

namespace qor::engines {

class MediaCommands;
class MediaReports;

/// An engine that transcodes or analyses one file, on FFmpeg's libraries. Run does all work on the calling
/// thread. Run does not throw for errors in the media: the run publishes "Failed" and returns, the status is
/// Failed, and the last error message is the reason. An engine runs once.
class MediaEngine final : public EngineBase {
 public:
  explicit MediaEngine(std::shared_ptr<tamb::ICommandProcessorBackEnd> commands);

  static EngineManual manual();

  /// Throws TAMBRuntimeError if its document is not one for a media engine.
  void AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> description) override;
  /// Only the step "media" has a time: in milliseconds, at 1000/1.
  tamb::TimeInfo GetCurrentTimeInfo(const std::string& name) const override;

 private:
  void runOnce() override;
  /// Ends a run that was abandoned, after its output has been removed.
  void endAbandonedRun(MediaCommands& mediaCommands, const MediaReports& reports);

  std::optional<MediaDocument> document_;
  MediaPosition position_;
};

}  // namespace qor::engines
