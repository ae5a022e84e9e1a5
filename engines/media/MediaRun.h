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

/// One run of a media engine: takes the frames of video and audio in the order of their times through the
/// filters to the output. A command of time t comes after every frame and every sample before t, and before
/// all others: an audio frame is cut for it. The times of frames decide alone which step is next; hence the
/// same input, filters and timed commands give the same output.
class MediaRun final : public MediaCommandTarget {
 public:
  /// What is given has to outlive the run.
  MediaRun(const MediaDocument& document, MediaCommands& commands, MediaReports& reports, RunWatch& watch,
           MediaPosition& position);
  ~MediaRun() override;
  MediaRun(const MediaRun&) = delete;
  MediaRun& operator=(const MediaRun&) = delete;

  /// Returns when the output is complete. Throws TAMBRuntimeError when something fails, and StoppedEarly
  /// when a stop was requested before input and output were open, or when the run was abandoned before its
  /// end.
  MediaResult run();

  void advanceTo(const tamb::MediaTime& time) override;
  void commandFilter(const std::string& target, const std::string& command,
                     const std::string& argument) override;
  void stop() override { stopped_ = true; }
  double position() const override { return position_.position; }

 private:
  /// What the document asks for and the input has to have.
  void requireStreams() const;
  void requireOtherFile() const;
  void openDecoders();
  void openLanes();
  /// What the document asks of a stream of that type; null when there is nothing.
  const char* asked(AVMediaType type) const;
  /// Goes on without a stream that gave no frame. Throws if it begins too far behind the other one, or if it
  /// cannot be decoded and the document asks something of it.
  void leaveOut(StreamDecoder& decoder);
  void process();
  void finish();
  /// Throws StoppedEarly when a stop was requested, as long as nothing has been written.
  void requireNoStop() const;
  /// Throws when a run has been cut short whose output nobody wants.
  void requireWanted() const;

  void showPicture();
  /// Processes the audio at hand up to that sample.
  void playSound(std::int64_t end);
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
  FrameHandle sound_;  ///< the audio frame at hand
  bool soundIsFill_ = false;
  int soundOffset_ = 0;          ///< how many of its samples are done
  std::int64_t soundLimit_ = 0;  ///< the sample that commands may advance to
  bool stopped_ = false;
  MediaResult result_;
};

}  // namespace qor::engines
