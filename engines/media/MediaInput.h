#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engines/media/FfmpegHandles.h"
#include "engines/media/InterruptiblePipe.h"
#include "engines/media/MediaFaults.h"
#include "engines/media/PacketTimes.h"
#include "engines/sdk/RunWatch.h"

namespace qor::engines {

/// Opens a file or a URL and delivers the packets of its best video and its best audio stream, each in
/// decoding order. A stop request interrupts pending reads.
class MediaInput {
 public:
  /// The arguments have to outlive this object.
  MediaInput(const std::string& location, MediaFaults& faults, RunWatch& watch);

  const std::string& location() const { return location_; }
  /// Null if there is no such stream.
  AVStream* video() const { return video_; }
  AVStream* audio() const { return audio_; }
  /// Album pictures: each is one packet, which its stream keeps.
  std::vector<const AVStream*> pictures() const;
  AVRational guessedFrameRate() const;
  /// Seconds; 0 if unknown.
  double duration() const;
  /// The start time of the media, in the units of that stream.
  std::int64_t startTime(const AVStream& stream) const;
  const AVDictionary* metadata() const { return context_->metadata; }

  /// Only packets of selected streams are delivered. Select all before the first packet.
  void select(AVStream& stream);
  /// Discards the packets of that stream from now on, so that they do not block the other one.
  void deselect(AVStream& stream);

  enum class Outcome {
    Packet,
    End,
    /// Too many packets of the other stream are waiting: take them first.
    OthersFirst,
  };
  Outcome nextPacket(const AVStream& stream, PacketHandle& packet);
  /// Whether a later packet of a selected stream is due before a time. Reads up to the first packet that is
  /// due at `until` or later, as far as packets may wait. Both times are in the stream's units.
  bool stepsBack(const AVStream& stream, std::int64_t before, std::int64_t until);
  /// Grows with each delivered packet and each deselected stream; while it stays the same, there is no
  /// progress.
  std::uint64_t progress() const { return progress_; }

 private:
  struct Queue {
    std::deque<PacketHandle> packets;
    std::size_t bytes = 0;
  };

  AVStream* findBest(AVMediaType type);
  void readOne();
  /// Reports, once, a further video or audio stream in formats where streams may come and go, such as joined
  /// transport streams: it may continue the selected one.
  void reportLeftOut(const AVStream& stream);
  /// Ends the input where reading failed. Throws if the run should fail in that case, or if the cause is not
  /// damaged data.
  void endAtError(int error);
  bool queueIsFull() const;

  const std::string location_;
  MediaFaults& faults_;
  RunWatch& watch_;
  InterruptiblePipe pipe_;
  InputHandle context_;
  std::optional<PacketTimes> times_;  ///< empty until the input is open
  AVStream* video_ = nullptr;
  AVStream* audio_ = nullptr;
  std::map<int, Queue> queues_;  ///< by stream index
  std::set<int> leftOut_;        ///< further streams that were reported
  std::uint64_t progress_ = 0;
  double lastSeconds_ = 0;  ///< time of the last packet that was read
  bool ended_ = false;
};

}  // namespace qor::engines
