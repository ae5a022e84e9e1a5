#include "engines/media/MediaLane.h"

#include <utility>

#include "engines/media/EncoderChoice.h"
#include "engines/media/FrameKind.h"
#include "engines/media/Orientation.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

namespace {

/// For audio that is not encoded.
constexpr unsigned int analysisFrameSize = 1'024;

FilterTexts textsFor(const AVFrame& first, const AVStream& stream, const std::string& filters,
                     const MediaOutput* output) {
  const auto type = stream.codecpar->codec_type;
  return {.first = type == AVMEDIA_TYPE_VIDEO ? uprightFilters(stream, first) : std::vector<std::string>(),
          .filters = filters,
          .last = output == nullptr ? std::string() : fittingFilter(*output->encoder(type))};
}

}  // namespace

MediaLane::MediaLane(const AVFrame& first, const StreamDecoder& decoder, AVRational frameRate,
                     const std::string& filters, MediaOutput* output, LoudnessMeter* meter,
                     MediaFaults& faults)
    : decoder_(decoder),
      faults_(faults),
      graph_(first, decoder.timeBase(), frameRate, textsFor(first, decoder.stream(), filters, output)),
      converter_(first, decoder.timeBase()),
      kind_(kindOf(first)),
      timeBase_(graph_.format().timeBase),
      meter_(meter) {
  const auto type = decoder.stream().codecpar->codec_type;
  if (output != nullptr) {
    encoder_ = &output->addStream(type, *graph_.outputLike(), graph_.format());
  }
  if (type == AVMEDIA_TYPE_AUDIO) {
    graph_.setFrameSize(encoder_ == nullptr ? analysisFrameSize : encoder_->frameSize());
  }
}

bool MediaLane::push(FrameHandle frame, RunWatch& watch) {
  // After the filters the pictures are upright, so players must not rotate them again.
  av_frame_remove_side_data(frame.get(), AV_FRAME_DATA_DISPLAYMATRIX);
  for (auto& each : converted(std::move(frame))) {
    if (!filter(std::move(each), watch)) {
      return false;
    }
  }
  return true;
}

std::vector<FrameHandle> MediaLane::converted(FrameHandle frame) {
  std::vector<FrameHandle> frames;
  if (!faults_.skipsErrors()) {
    frames.push_back(std::move(frame));
    return frames;
  }
  const auto timeBase = isVideo(*frame) ? decoder_.timeBase() : AVRational{1, frame->sample_rate};
  const int stream = decoder_.stream().index;
  const double seconds = static_cast<double>(frame->pts) * av_q2d(timeBase);
  if (!sameKind(*frame, *kind_)) {
    faults_.kindChanged(stream, seconds, kindText(*kind_), kindText(*frame));
    kind_ = kindOf(*frame);
  }
  try {
    return converter_.convert(std::move(frame), timeBase);
  } catch (const tamb::TAMBRuntimeError& error) {
    faults_.undecodable(stream, seconds, error.what());
    return frames;
  }
}

bool MediaLane::filter(FrameHandle frame, RunWatch& watch) {
  graph_.push(std::move(frame));
  // A filter that fills gaps may turn one frame into hours of frames.
  while (const auto filtered = graph_.pull()) {
    take(*filtered);
    watch.beat();
    if (watch.stopRequested()) {
      return false;
    }
  }
  return true;
}

void MediaLane::finish(const std::function<bool(double)>& wanted) {
  for (auto& each : converter_.finish()) {
    graph_.push(std::move(each));
  }
  graph_.finish();
  while (const auto filtered = graph_.pull()) {
    if (filtered->pts != AV_NOPTS_VALUE && !wanted(static_cast<double>(filtered->pts) * av_q2d(timeBase_))) {
      return;
    }
    take(*filtered);
  }
}

void MediaLane::take(AVFrame& frame) {
  if (meter_ != nullptr) {
    meter_->measure(frame, timeBase_);
  }
  if (encoder_ != nullptr) {
    encoder_->encode(frame, timeBase_);
  }
}

}  // namespace qor::engines
