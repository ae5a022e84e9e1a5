#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engines/media/LoudnessMeter.h"
#include "engines/media/MediaCommands.h"
#include "engines/media/MediaDocument.h"
#include "engines/media/MediaFaults.h"
#include "engines/media/MediaInput.h"
#include "engines/media/MediaLane.h"
#include "engines/media/MediaOutput.h"
#include "engines/media/MediaPacer.h"
#include "engines/media/MediaPosition.h"
#include "engines/media/MediaReports.h"
#include "engines/media/StreamDecoder.h"
#include "engines/sdk/RunWatch.h"

namespace qor::engines {

/// One run of a media engine: takes the frames of video and audio through the filters to the output, in the
/// order of their times. A command of time t is executed after every frame and every sample before t, and
/// before all others; audio frames are split for it. Only the times of frames determine the next step, so the
/// same input, filters and timed commands give the same output.
class MediaRun final : public MediaCommandTarget {
 public:
  /// The arguments have to outlive the run.
  MediaRun(const MediaDocument& document, MediaCommands& commands, MediaReports& reports, RunWatch& watch,
           MediaPosition& position);
  ~MediaRun() override;
  MediaRun(const MediaRun&) = delete;
  MediaRun& operator=(const MediaRun&) = delete;

  /// Returns when the output is complete. Throws TAMBRuntimeError on failure, and StoppedEarly if a stop was
  /// requested before input and output were open, or if the run was abandoned before its end.
  MediaResult run();

  void advanceTo(const tamb::MediaTime& time) override;
  void commandFilter(const std::string& target, const std::string& command,
                     const std::string& argument) override;
  void stop() override { stopped_ = true; }
  double position() const override { return position_.position; }

 private:
  /// Checks that the input has the streams that the document requires.
  void requireStreams() const;
  void requireOtherFile() const;
  void openDecoders();
  void openLanes();
  /// The setting that requires a stream of that type, for error texts; null if there is none.
  const char* requirementFor(AVMediaType type) const;
  /// Continues without a stream that gave no frame. Throws if it begins too long after the other one, or if
  /// it cannot be decoded and the document requires it.
  void leaveOut(StreamDecoder& decoder);
  void process();
  void finish();
  /// Throws StoppedEarly if a stop was requested before anything was written.
  void requireNoStop() const;
  /// Throws if the run was abandoned.
  void requireWanted() const;

  void processPicture();
  /// Processes the decoded audio up to that sample.
  void processSound(std::int64_t end);
  void advanceSound(std::int64_t end);
  /// The number of the next sample.
  std::int64_t soundPosition() const { return sound_->pts + soundOffset_; }
  bool fetchSound();
  void waitFor(double mediaSeconds);
  void reach(double position, double end);
  bool stopping() const { return stopped_ || watch_.stopRequested(); }

  const MediaDocument& document_;
  MediaCommands& commands_;
  MediaReports& reports_;
  RunWatch& watch_;
  MediaPosition& position_;
  MediaFaults faults_;

  std::optional<MediaInput> input_;
  std::optional<StreamDecoder> videoDecoder_;
  std::optional<StreamDecoder> audioDecoder_;
  std::optional<LoudnessMeter> meter_;
  std::optional<MediaOutput> output_;
  std::optional<MediaLane> video_;
  std::optional<MediaLane> audio_;
  MediaPacer pacer_;
  FrameHandle sound_;  ///< the current audio frame
  bool soundIsFill_ = false;
  int soundOffset_ = 0;          ///< number of its samples that are processed
  std::int64_t soundLimit_ = 0;  ///< the sample that commands may advance to
  bool stopped_ = false;
  MediaResult result_;
};

}  // namespace qor::engines
