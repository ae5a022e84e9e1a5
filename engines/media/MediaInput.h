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

/// Opens a file or an URL and hands out the packets of its best video and its best audio stream, of each in
/// the order in which they are to be decoded. A stop request ends reads that are under way.
class MediaInput {
 public:
  /// What is given has to outlive it.
  MediaInput(const std::string& location, MediaFaults& faults, RunWatch& watch);

  const std::string& location() const { return location_; }
  /// Null when there is no such stream.
  AVStream* video() const { return video_; }
  AVStream* audio() const { return audio_; }
  /// Those of an album: each is one packet, which its stream keeps.
  std::vector<const AVStream*> pictures() const;
  AVRational guessedFrameRate() const;
  /// Seconds; 0 when it is not known.
  double duration() const;
  /// The time that the media begins with, in the units of that stream.
  std::int64_t startTime(const AVStream& stream) const;
  const AVDictionary* metadata() const { return context_->metadata; }

  /// Only packets of streams that were selected are handed out. All of them before the first packet.
  void select(AVStream& stream);
  /// Nobody takes the packets of that stream any more: they are not to keep the other one waiting.
  void deselect(AVStream& stream);

  enum class Outcome {
    Packet,
    End,
    /// The other stream's packets that wait have grown too many: they are to be taken first.
    OthersFirst,
  };
  Outcome nextPacket(const AVStream& stream, PacketHandle& packet);
  /// Whether a later packet of a selected stream is due before a time. Reads on up to the first packet that
  /// is due at `until` or later, as far as packets may wait. Both times are in the stream's units.
  bool stepsBack(const AVStream& stream, std::int64_t before, std::int64_t until);
  /// Grows with each packet that is handed out and each stream that is deselected: as long as it stays the
  /// same, nobody gets on.
  std::uint64_t progress() const { return progress_; }

 private:
  struct Queue {
    std::deque<PacketHandle> packets;
    std::size_t bytes = 0;
  };

  AVStream* findBest(AVMediaType type);
  void readOne();
  /// Reports, once, a further stream of video or audio where streams may come and go, as in joined transport
  /// streams: it may be the rest of the one that is taken.
  void reportLeftOut(const AVStream& stream);
  /// Ends the input where reading failed. Throws if the run is to fail for it, or if it is not the data that
  /// is damaged.
  void breakOff(int error);
  bool queueIsFull() const;

  const std::string location_;
  MediaFaults& faults_;
  RunWatch& watch_;
  InterruptiblePipe pipe_;
  InputHandle context_;
  std::optional<PacketTimes> times_;  ///< there once the input is open
  AVStream* video_ = nullptr;
  AVStream* audio_ = nullptr;
  std::map<int, Queue> queues_;  ///< by stream index
  std::set<int> leftOut_;        ///< the further streams that were reported
  std::uint64_t progress_ = 0;
  double lastSeconds_ = 0;  ///< the time of the last packet that was read
  bool ended_ = false;
};

}  // namespace qor::engines
