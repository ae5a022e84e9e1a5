#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "engines/media/FfmpegHandles.h"
#include "engines/media/MediaFaults.h"
#include "engines/media/MediaInput.h"
#include "engines/media/RationalTime.h"

namespace qor::engines {

/// Decodes one stream, without threads, so that the same file gives the same frames. Skips what cannot be
/// decoded and counts it among the faults, or throws, as the faults are set.
class StreamDecoder {
 public:
  /// What is given has to outlive it. `fillGaps` puts silence where sound has gaps, for outputs that cannot
  /// hold them.
  StreamDecoder(MediaInput& input, AVStream& stream, MediaFaults& faults, bool fillGaps);

  /// The next frame in presentation order; stays there until it is taken. Null when there is none now: see
  /// ended().
  AVFrame* peek();
  FrameHandle take();
  /// Whether the frame of the last peek() is silence that was put into a gap.
  bool isFill() const { return isFill_; }
  /// False after a null peek() when the input has to be asked for the other stream first.
  bool ended() const { return ended_; }
  /// Gives the stream up: its packets no longer keep the other one waiting.
  void end();

  /// Why the first part that was skipped could not be decoded; empty if there was none.
  const std::string& firstError() const { return firstError_; }

  /// When the frame of the last peek() is due.
  RationalTime time() const;
  /// What the frames' time stamps count; they begin with the media at 0.
  AVRational timeBase() const { return timeBase_; }
  const AVStream& stream() const { return stream_; }
  /// As in "1: audio aac 48000 Hz stereo".
  std::string text() const;

 private:
  /// False when no frame is to be had now.
  bool decode();
  void feed();
  /// False when the frame is useless.
  bool stamp();
  /// Counts a time stamp that is damage. Throws if the run is to fail for it.
  void dropTime(double expected, double given);
  /// Whether a frame is so late that silence up to it would be too long, and later packets belong before it:
  /// its time is damage then.
  bool isBeyondSilence(std::int64_t time);
  void stampVideo(std::int64_t time);
  void stampAudio(std::int64_t time);
  void openGap();
  void nextOfGap();
  /// Counts what could not be decoded. Throws if the run is to fail for it.
  void lose(int error);
  double expectedSeconds() const;
  double seconds(std::int64_t time) const;

  MediaInput& input_;
  MediaFaults& faults_;
  const bool fillGaps_;
  AVStream& stream_;
  CodecHandle codec_;
  FrameHandle frame_;
  FrameHandle behindGap_;  ///< the frame that was decoded, as long as silence comes before it
  bool hasFrame_ = false;
  bool isFill_ = false;
  bool ended_ = false;
  bool starved_ = false;
  AVRational timeBase_;
  std::int64_t startTime_;
  AVRational frameRate_{0, 1};
  /// Where the next frame is expected, in units of the time base.
  std::int64_t next_ = 0;
  /// Where the sound that was handed out ends, in samples.
  std::int64_t soundEnd_ = 0;
  /// As long as times are damage: from here on, in units of the stream.
  std::optional<std::int64_t> damagedFrom_;
  double packetSeconds_ = 0;  ///< the time of the last packet
  std::string firstError_;
};

}  // namespace qor::engines
