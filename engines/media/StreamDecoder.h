#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "engines/media/FfmpegHandles.h"
#include "engines/media/MediaFaults.h"
#include "engines/media/MediaInput.h"
#include "engines/media/RationalTime.h"

namespace qor::engines {

/// Decodes one stream, without threads, so that the same file gives the same frames. Depending on the setting
/// of the faults, it skips and counts data that cannot be decoded, or throws.
class StreamDecoder {
 public:
  /// The arguments have to outlive this object. `fillGaps` fills gaps in the sound with silence, for outputs
  /// that cannot represent them.
  StreamDecoder(MediaInput& input, AVStream& stream, MediaFaults& faults, bool fillGaps);

  /// The next frame in presentation order, which stays until it is taken. Null if none is available now: see
  /// ended().
  AVFrame* peek();
  FrameHandle take();
  /// Whether the frame of the last peek() is silence that fills a gap.
  bool isFill() const { return isFill_; }
  /// False after a null peek() if the other stream has to be read first.
  bool ended() const { return ended_; }
  /// Abandons the stream: its packets no longer block the other one.
  void end();

  /// Why the first skipped part could not be decoded; empty if none was skipped.
  const std::string& firstError() const { return firstError_; }

  /// The time of the frame of the last peek().
  RationalTime time() const;
  /// The unit of the frames' time stamps; the media begins at 0.
  AVRational timeBase() const { return timeBase_; }
  const AVStream& stream() const { return stream_; }
  /// For example "1: audio aac 48000 Hz stereo".
  std::string text() const;

 private:
  /// False if no frame is available now.
  bool decode();
  void feed();
  /// False if the frame is unusable.
  bool stamp();
  /// Counts a damaged time stamp. Throws if the run should fail in that case.
  void dropTime(double expected, double given);
  /// Whether a frame is so late that the silence before it would be too long, while later packets are earlier
  /// than it: its time is then damaged.
  bool isBeyondSilence(std::int64_t time);
  void stampVideo(std::int64_t time);
  void stampAudio(std::int64_t time);
  void openGap();
  void nextOfGap();
  /// Counts a part that could not be decoded. Throws if the run should fail in that case.
  void lose(int error);
  double expectedSeconds() const;
  double seconds(std::int64_t time) const;

  MediaInput& input_;
  MediaFaults& faults_;
  const bool fillGaps_;
  AVStream& stream_;
  CodecHandle codec_;
  FrameHandle frame_;
  FrameHandle behindGap_;  ///< decoded frame, while silence comes before it
  bool hasFrame_ = false;
  bool isFill_ = false;
  bool ended_ = false;
  bool starved_ = false;
  AVRational timeBase_;
  std::int64_t startTime_;
  AVRational frameRate_{0, 1};
  /// The expected time of the next frame, in units of the time base.
  std::int64_t next_ = 0;
  /// The end of the delivered sound, in samples.
  std::int64_t soundEnd_ = 0;
  /// While times are damaged: the start of the damage, in units of the stream.
  std::optional<std::int64_t> damagedFrom_;
  double packetSeconds_ = 0;  ///< time of the last packet
  std::string firstError_;
};

}  // namespace qor::engines
