#include "engines/media/PacketTimes.h"

#include <fmt/format.h>

#include <algorithm>

#include "tamb/TAMBRuntimeError.h"

extern "C" {
#include <libavutil/common.h>
#include <libavutil/mathematics.h>
}

namespace qor::engines {

namespace {

/// The defaults of the `ffmpeg` program: -dts_delta_threshold 10, -dts_error_threshold 30 h, and the longest
/// step back of a stream.
constexpr std::int64_t jumpThreshold = std::int64_t{10} * AV_TIME_BASE;
constexpr std::int64_t errorThreshold = std::int64_t{30} * 3600 * AV_TIME_BASE;
constexpr std::int64_t longestStepBack = AV_TIME_BASE / 10;

constexpr AVRational microsecond{1, AV_TIME_BASE};

std::int64_t toMicroseconds(std::int64_t time, AVRational unit) {
  return av_rescale_q_rnd(time, unit, microsecond,
                          static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX));
}

bool exceeds(std::int64_t difference, std::int64_t threshold) {
  return difference > threshold || difference < -threshold;
}

void shift(AVPacket& packet, std::int64_t microseconds, AVRational unit) {
  const auto offset = av_rescale_q(microseconds, microsecond, unit);
  for (auto* time : {&packet.pts, &packet.dts}) {
    if (*time != AV_NOPTS_VALUE) {
      *time = av_sat_add64(*time, offset);
    }
  }
}

/// The distance from one packet to the next.
std::int64_t durationOf(const AVPacket& packet, const AVStream& stream) {
  const auto& parameters = *stream.codecpar;
  if (parameters.codec_type == AVMEDIA_TYPE_AUDIO && parameters.sample_rate > 0 &&
      parameters.frame_size > 0) {
    return av_rescale(parameters.frame_size, AV_TIME_BASE, parameters.sample_rate);
  }
  if (packet.duration > 0) {
    return av_rescale_q(packet.duration, stream.time_base, microsecond);
  }
  const auto rate = stream.avg_frame_rate;
  return rate.num > 0 && rate.den > 0 ? av_rescale_q(1, av_inv_q(rate), microsecond) : 0;
}

}  // namespace

PacketTimes::PacketTimes(const AVFormatContext& input, const std::string& location, MediaFaults& faults)
    : input_(input),
      location_(location),
      faults_(faults),
      mayJump_((input.iformat->flags & AVFMT_TS_DISCONT) != 0) {}

void PacketTimes::correct(AVPacket& packet) {
  const auto& stream = *input_.streams[packet.stream_index];
  auto& track = tracks_[packet.stream_index];
  shift(packet, offset_, stream.time_base);
  if (packet.dts != AV_NOPTS_VALUE) {
    if (mayJump_) {
      removeJump(packet, stream, track);
    } else if (track.next != AV_NOPTS_VALUE) {
      dropDamaged(packet, stream, track);
    }
  }
  if (packet.dts != AV_NOPTS_VALUE) {
    lastTime_ = toMicroseconds(packet.dts, stream.time_base);
  }
  expect(packet, stream, track);
}

std::int64_t PacketTimes::jumpOf(const Track& track, std::int64_t time) const {
  if (track.next == AV_NOPTS_VALUE) {
    // The first packet of a stream is compared with the other stream.
    const auto difference = lastTime_ == AV_NOPTS_VALUE ? 0 : av_sat_sub64(time, lastTime_);
    return exceeds(difference, jumpThreshold) ? difference : 0;
  }
  const auto difference = av_sat_sub64(time, track.next);
  const bool stepsBack = av_sat_add64(time, longestStepBack) < track.last;
  return exceeds(difference, jumpThreshold) || stepsBack ? difference : 0;
}

void PacketTimes::removeJump(AVPacket& packet, const AVStream& stream, const Track& track) {
  const auto time = toMicroseconds(packet.dts, stream.time_base);
  const auto jump = jumpOf(track, time);
  if (jump == 0) {
    return;
  }
  offset_ = av_sat_sub64(offset_, jump);
  shift(packet, av_sat_sub64(0, jump), stream.time_base);
  faults_.timeJumped(stream.index, seconds(av_sat_sub64(time, jump)),
                     static_cast<double>(jump) / AV_TIME_BASE);
}

void PacketTimes::dropDamaged(AVPacket& packet, const AVStream& stream, const Track& track) {
  std::int64_t worst = 0;
  for (auto* stamp : {&packet.dts, &packet.pts}) {
    if (*stamp == AV_NOPTS_VALUE) {
      continue;
    }
    const auto jump = av_sat_sub64(toMicroseconds(*stamp, stream.time_base), track.next);
    if (exceeds(jump, errorThreshold)) {
      worst = jump;
      *stamp = AV_NOPTS_VALUE;
    }
  }
  if (worst == 0) {
    return;
  }
  if (!faults_.skipsErrors()) {
    throw tamb::TAMBRuntimeError(
        fmt::format("Cannot decode stream {} of {:?}: its time jumps from {:.3f} s to {:.3f} s", stream.index,
                    location_, seconds(track.next), seconds(av_sat_add64(track.next, worst))));
  }
  faults_.timeJumped(stream.index, seconds(track.next), static_cast<double>(worst) / AV_TIME_BASE);
}

void PacketTimes::expect(const AVPacket& packet, const AVStream& stream, Track& track) const {
  if (packet.dts != AV_NOPTS_VALUE) {
    track.last = toMicroseconds(packet.dts, stream.time_base);
  } else if (track.next != AV_NOPTS_VALUE) {
    track.last = track.next;
  } else if (packet.pts != AV_NOPTS_VALUE) {
    // Pictures are reordered: the first one is decoded this many pictures before it is displayed.
    const auto rate = stream.avg_frame_rate;
    const auto delay = rate.num > 0 && rate.den > 0
                           ? av_rescale_q(stream.codecpar->video_delay, av_inv_q(rate), microsecond)
                           : 0;
    track.last = av_sat_sub64(toMicroseconds(packet.pts, stream.time_base), delay);
  } else {
    return;
  }
  track.next = av_sat_add64(track.last, durationOf(packet, stream));
}

double PacketTimes::seconds(std::int64_t time) const {
  const auto start = input_.start_time == AV_NOPTS_VALUE ? 0 : input_.start_time;
  return static_cast<double>(av_sat_sub64(time, start)) / AV_TIME_BASE;
}

}  // namespace qor::engines
