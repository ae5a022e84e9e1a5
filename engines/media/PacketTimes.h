#pragma once

#include <cstdint>
#include <map>

#include "engines/media/FfmpegHandles.h"
#include "engines/media/MediaFaults.h"

namespace qor::engines {

/// Removes jumps from the times of packets, by the rules and thresholds of the `ffmpeg` program. In formats
/// whose times may jump (AVFMT_TS_DISCONT), such as joined transport streams, all later times are shifted so
/// that they continue from where they jumped. In all others a time stamp that is far off is damage, and is
/// dropped. Counts the jumps among the faults. Used on the run's thread only.
class PacketTimes {
 public:
  /// `location` names the input in errors. The arguments have to outlive this object.
  PacketTimes(const AVFormatContext& input, const std::string& location, MediaFaults& faults);

  /// Corrects the times of a packet of video or audio; call it in the order in which packets are read. Throws
  /// TAMBRuntimeError on damage if the run should fail in that case.
  void correct(AVPacket& packet);

 private:
  /// The times of one stream, in units of 1/AV_TIME_BASE.
  struct Track {
    std::int64_t last = AV_NOPTS_VALUE;  ///< decoding time of the last packet
    std::int64_t next = AV_NOPTS_VALUE;  ///< expected decoding time of the next one
  };

  /// The size of the packet's jump; 0 if it has not jumped.
  std::int64_t jumpOf(const Track& track, std::int64_t time) const;
  void removeJump(AVPacket& packet, const AVStream& stream, const Track& track);
  void dropDamaged(AVPacket& packet, const AVStream& stream, const Track& track);
  void expect(const AVPacket& packet, const AVStream& stream, Track& track) const;
  double seconds(std::int64_t time) const;

  const AVFormatContext& input_;
  const std::string& location_;
  MediaFaults& faults_;
  const bool mayJump_;
  std::map<int, Track> tracks_;             ///< by stream index
  std::int64_t offset_ = 0;                 ///< added to all times
  std::int64_t lastTime_ = AV_NOPTS_VALUE;  ///< time of the last packet of any stream
};

}  // namespace qor::engines
