#include "engines/media/StreamDecoder.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "engines/media/AudioCut.h"
#include "engines/media/FfmpegCalls.h"
#include "tamb/TAMBRuntimeError.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/common.h>
}

namespace qor::engines {

namespace {

/// Containers round the times of audio: smaller differences are rounding, larger ones are gaps.
constexpr std::int64_t audioToleranceMilliseconds = 50;
/// A time stamp with a larger gap is damaged, as for the `ffmpeg` program.
constexpr double longestGapSeconds = 30 * 3600;
/// A gap up to this length is filled at once; a longer one only if the times of as many seconds after it
/// agree. The `ffmpeg` program, too, considers more than 10 s a jump in formats whose times may jump.
constexpr std::int64_t longestDoubtlessGapSeconds = 10;
/// Ten years.
constexpr double longestMediaSeconds = 3650.0 * 24 * 3600;
/// After this many consecutive errors without consuming a packet, the decoder is stuck. No known decoder
/// returns more than a few.
constexpr int mostLostWithoutPacket = 1'000;
/// The length of one frame of silence, in samples. Frames are created one at a time, so that a long gap takes
/// no more memory than a short one.
constexpr std::int64_t silenceFrameSize = 1'024;

std::string layoutText(const AVChannelLayout& layout) {
  std::array<char, 128> text{};
  av_channel_layout_describe(&layout, text.data(), text.size());
  return text.data();
}

}  // namespace

StreamDecoder::StreamDecoder(MediaInput& input, AVStream& stream, MediaFaults& faults, bool fillGaps)
    : input_(input),
      faults_(faults),
      fillGaps_(fillGaps && stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO),
      stream_(stream),
      frame_(makeFrame()),
      timeBase_(stream.time_base),
      startTime_(input.startTime(stream)) {
  input.select(stream);
  const auto& parameters = *stream.codecpar;
  const auto text = [&] {
    return fmt::format("Cannot decode stream {} of {:?} ({})", stream.index, input.location(),
                       avcodec_get_name(parameters.codec_id));
  };
  const auto* const decoder = avcodec_find_decoder(parameters.codec_id);
  if (decoder == nullptr) {
    throw tamb::TAMBRuntimeError(text() + ": no decoder is available");
  }
  codec_ = allocated<CodecHandle>(avcodec_alloc_context3(decoder));
  ffmpegCall([&] { return avcodec_parameters_to_context(codec_.get(), &parameters); }, text);
  if (codec_->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
    av_channel_layout_default(&codec_->ch_layout, codec_->ch_layout.nb_channels);
  }
  codec_->pkt_timebase = stream.time_base;
  codec_->thread_count = 1;
  codec_->flags |= AV_CODEC_FLAG_BITEXACT;
  ffmpegCall([&] { return avcodec_open2(codec_.get(), decoder, nullptr); }, text);
  if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) {
    frameRate_ = input.guessedFrameRate();
  }
}

AVFrame* StreamDecoder::peek() {
  if (!hasFrame_ && behindGap_) {
    nextOfGap();
  } else if (!hasFrame_ && !ended_) {
    isFill_ = false;
    do {
      hasFrame_ = decode();
    } while (hasFrame_ && !stamp());
    if (hasFrame_ && fillGaps_) {
      openGap();
    }
  }
  return hasFrame_ ? frame_.get() : nullptr;
}

FrameHandle StreamDecoder::take() {
  hasFrame_ = false;
  return std::exchange(frame_, makeFrame());
}

void StreamDecoder::end() {
  if (!ended_) {
    ended_ = true;
    input_.deselect(stream_);
  }
}

RationalTime StreamDecoder::time() const {
  if (frameRate_.num > 0 && frameRate_.den > 0 && codec_->codec_type == AVMEDIA_TYPE_VIDEO) {
    const auto frameDuration = av_inv_q(frameRate_);
    const auto number = av_rescale_q(frame_->pts, timeBase_, frameDuration);
    // Containers round: a frame within one unit of its position counts as exactly there.
    const auto distance = av_sat_sub64(av_rescale_q(number, frameDuration, timeBase_), frame_->pts);
    if (distance >= -1 && distance <= 1) {
      return {number, frameDuration};
    }
  }
  return {frame_->pts, timeBase_};
}

std::string StreamDecoder::text() const {
  const auto* const name = avcodec_get_name(codec_->codec_id);
  if (codec_->codec_type == AVMEDIA_TYPE_VIDEO) {
    return fmt::format("{}: video {} {}x{} {}/{}", stream_.index, name, codec_->width, codec_->height,
                       frameRate_.num, frameRate_.den);
  }
  return fmt::format("{}: audio {} {} Hz {}", stream_.index, name, codec_->sample_rate,
                     layoutText(codec_->ch_layout));
}

bool StreamDecoder::decode() {
  int lostWithoutPacket = 0;
  for (;;) {
    forgetFfmpegErrorLine();
    const int result = avcodec_receive_frame(codec_.get(), frame_.get());
    if (result == 0) {
      return true;
    }
    if (result == AVERROR_EOF || lostWithoutPacket > mostLostWithoutPacket) {
      // The decoder may end before its packets do.
      end();
      return false;
    }
    if (result != AVERROR(EAGAIN)) {
      lose(result);
      ++lostWithoutPacket;
      continue;
    }
    lostWithoutPacket = 0;
    starved_ = false;
    feed();
    if (starved_) {
      return false;
    }
  }
}

void StreamDecoder::feed() {
  PacketHandle packet;
  do {
    packet.reset();
    if (input_.nextPacket(stream_, packet) == MediaInput::Outcome::OthersFirst) {
      starved_ = true;
      return;
    }
    // The decoder would mistake an empty packet, which some containers have, for the end.
  } while (packet && packet->size == 0);
  if (packet) {
    const auto time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
    packetSeconds_ = time == AV_NOPTS_VALUE ? expectedSeconds() : seconds(av_sat_sub64(time, startTime_));
  }
  // A null packet marks the end.
  const int result = avcodec_send_packet(codec_.get(), packet.get());
  if (result < 0 && result != AVERROR_EOF) {
    lose(result);
  }
}

bool StreamDecoder::stamp() {
  if (codec_->codec_type == AVMEDIA_TYPE_AUDIO && (frame_->sample_rate <= 0 || frame_->nb_samples <= 0)) {
    forgetFfmpegErrorLine();
    lose(AVERROR_INVALIDDATA);
    return false;
  }
  std::int64_t time = frame_->best_effort_timestamp;
  if (time != AV_NOPTS_VALUE) {
    time = av_sat_sub64(time, startTime_);
    const double given = seconds(time);
    const double expected = expectedSeconds();
    if (given - expected > longestGapSeconds || given < -longestGapSeconds) {
      dropTime(expected, given);
      time = AV_NOPTS_VALUE;
    } else if (fillGaps_ && isBeyondSilence(time)) {
      time = AV_NOPTS_VALUE;
    }
  }
  if (codec_->codec_type == AVMEDIA_TYPE_VIDEO) {
    stampVideo(time);
  } else {
    stampAudio(time);
  }
  // This bound prevents overflows in later arithmetic with samples or units of the stream.
  const double reached = static_cast<double>(frame_->pts) * av_q2d(timeBase_);
  if (reached > longestMediaSeconds) {
    throw tamb::TAMBRuntimeError(
        fmt::format("Cannot decode stream {} of {:?}: its time stamps have reached {:.3f} s", stream_.index,
                    input_.location(), reached));
  }
  return true;
}

void StreamDecoder::dropTime(double expected, double given) {
  if (!faults_.skipsErrors()) {
    throw tamb::TAMBRuntimeError(
        fmt::format("Cannot decode stream {} of {:?}: its time jumps from {:.3f} s to {:.3f} s",
                    stream_.index, input_.location(), expected, given));
  }
  faults_.timeJumped(stream_.index, expected, given - expected);
}

bool StreamDecoder::isBeyondSilence(std::int64_t time) {
  if (damagedFrom_ && time >= *damagedFrom_) {
    return true;  // Every packet of a damaged cluster is late.
  }
  damagedFrom_.reset();
  const auto inUnits = [this](std::int64_t seconds) {
    return av_rescale_q(seconds, AVRational{1, 1}, stream_.time_base);
  };
  const auto expected = av_rescale_q(next_, timeBase_, stream_.time_base);
  const auto gap = av_sat_sub64(time, expected);
  if (gap <= inUnits(longestDoubtlessGapSeconds)) {
    return false;
  }
  const auto half = expected + gap / 2;
  const auto until = av_sat_add64(time, inUnits(longestDoubtlessGapSeconds));
  if (!input_.stepsBack(stream_, av_sat_add64(half, startTime_), av_sat_add64(until, startTime_))) {
    return false;
  }
  damagedFrom_ = half;
  dropTime(expectedSeconds(), seconds(time));
  return true;
}

void StreamDecoder::stampVideo(std::int64_t time) {
  frame_->pts = time == AV_NOPTS_VALUE ? next_ : time;
  const auto rateIsKnown = frameRate_.num > 0 && frameRate_.den > 0;
  const auto usual = rateIsKnown ? av_rescale_q(1, av_inv_q(frameRate_), timeBase_) : 1;
  next_ = av_sat_add64(frame_->pts, std::max<std::int64_t>(usual, 1));
}

// Audio counts samples: the first frame sets the time base to the duration of a sample.
void StreamDecoder::stampAudio(std::int64_t time) {
  if (frame_->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
    av_channel_layout_default(&frame_->ch_layout, frame_->ch_layout.nb_channels);
  }
  const AVRational sample{1, frame_->sample_rate};
  if (av_cmp_q(sample, timeBase_) != 0) {
    next_ = av_rescale_q(next_, timeBase_, sample);
    soundEnd_ = av_rescale_q(soundEnd_, timeBase_, sample);
    timeBase_ = sample;
  }
  frame_->pts = next_;
  if (time != AV_NOPTS_VALUE) {
    const auto given = av_rescale_q(time, stream_.time_base, sample);
    const auto tolerance = frame_->sample_rate * audioToleranceMilliseconds / 1000;
    // Audio never steps back: overlapping audio is moved behind the earlier one.
    if (av_sat_sub64(given, next_) > tolerance || next_ == 0) {
      frame_->pts = std::max(given, next_);
    }
  }
  next_ = av_sat_add64(frame_->pts, frame_->nb_samples);
}

void StreamDecoder::openGap() {
  const auto gap = av_sat_sub64(frame_->pts, soundEnd_);
  if (gap <= 0) {
    soundEnd_ = next_;
    return;
  }
  // A short delay is filled as well, but not reported as a gap.
  if (gap > frame_->sample_rate * audioToleranceMilliseconds / 1000) {
    const auto inSeconds = [&](std::int64_t samples) {
      return static_cast<double>(samples) / frame_->sample_rate;
    };
    faults_.gapFilled(inSeconds(soundEnd_), inSeconds(gap));
  }
  behindGap_ = std::exchange(frame_, makeFrame());
  nextOfGap();
}

void StreamDecoder::nextOfGap() {
  const auto count = std::min<std::int64_t>(behindGap_->pts - soundEnd_, silenceFrameSize);
  hasFrame_ = true;
  isFill_ = count > 0;
  if (!isFill_) {
    frame_ = std::move(behindGap_);
    soundEnd_ = next_;
    return;
  }
  frame_ = makeSilence(*behindGap_, static_cast<int>(count));
  frame_->pts = soundEnd_;
  soundEnd_ += count;
}

void StreamDecoder::lose(int error) {
  if (!faults_.skipsErrors()) {
    throwFfmpegError(error,
                     fmt::format("Cannot decode stream {} of {:?} ({}) near {:.3f} s", stream_.index,
                                 input_.location(), avcodec_get_name(codec_->codec_id), expectedSeconds()));
  }
  const auto reason = ffmpegErrorText(error);
  if (firstError_.empty()) {
    firstError_ = reason;
  }
  faults_.undecodable(stream_.index, std::max(packetSeconds_, 0.0), reason);
}

double StreamDecoder::expectedSeconds() const { return static_cast<double>(next_) * av_q2d(timeBase_); }

double StreamDecoder::seconds(std::int64_t time) const {
  return static_cast<double>(time) * av_q2d(stream_.time_base);
}

}  // namespace qor::engines
