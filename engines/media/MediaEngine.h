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

/// An engine that transcodes or analyses one file, on FFmpeg's libraries. Run does all of it on the calling
/// thread. What goes wrong with the media is no exception of Run's: the run notifies "Failed" and returns,
/// the status is Failed, and the last error message is the reason. An engine runs once.
class MediaEngine final : public EngineBase {
 public:
  explicit MediaEngine(std::shared_ptr<tamb::ICommandProcessorBackEnd> commands);

  static EngineManual manual();

  /// Throws TAMBRuntimeError when its document is not one for a media engine.
  void AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> description) override;
  /// The step "media" is all that has a time: in milliseconds, at 1000/1.
  tamb::TimeInfo GetCurrentTimeInfo(const std::string& name) const override;

 private:
  void runOnce() override;
  /// The end of a run that was abandoned, once nothing is left of its output.
  void giveUp(MediaCommands& mediaCommands, const MediaReports& reports);

  std::optional<MediaDocument> document_;
  MediaPosition position_;
};

}  // namespace qor::engines
