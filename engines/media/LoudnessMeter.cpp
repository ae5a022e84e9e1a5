#include "engines/media/LoudnessMeter.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "engines/media/FfmpegCalls.h"

extern "C" {
#include <libavutil/dict.h>
}

namespace qor::engines {

namespace {

/// What silence measures, which is no number in decibels.
constexpr double silence = -120;

/// What is less does not count for the integrated loudness.
constexpr double gate = -70;

/// Seconds; ends of 100 ms steps are sums that are not exact.
constexpr double tolerance = 1e-6;

double value(const AVFrame& frame, const char* key) {
  const auto* const entry = av_dict_get(frame.metadata, key, nullptr, 0);
  const double number = entry == nullptr ? silence : std::strtod(entry->value, nullptr);
  return std::isfinite(number) ? std::max(number, silence) : silence;
}

}  // namespace

LoudnessMeter::LoudnessMeter(Report everySecond) : everySecond_(std::move(everySecond)) {}

void LoudnessMeter::measure(const AVFrame& frame, AVRational timeBase) {
  if (!graph_) {
    graph_ = std::make_unique<FilterGraph>(frame, timeBase, AVRational{0, 1}, "ebur128=metadata=1", "");
  }
  auto reference = makeFrame();
  ffmpegCall([&] { return av_frame_ref(reference.get(), &frame); },
             [] { return "Cannot measure the loudness"; });
  graph_->push(std::move(reference));
  read();
}

void LoudnessMeter::finish() {
  if (graph_) {
    graph_->finish();
    read();
  }
}

void LoudnessMeter::read() {
  while (const auto frame = graph_->pull()) {
    integrated_ = std::max(value(*frame, "lavfi.r128.I"), gate);
    const double end = static_cast<double>(frame->pts) * av_q2d(graph_->format().timeBase) +
                       static_cast<double>(frame->nb_samples) / frame->sample_rate;
    if (end + tolerance >= nextReport_) {
      everySecond_(end, value(*frame, "lavfi.r128.M"), integrated_);
      nextReport_ = std::floor(end + tolerance) + 1;
    }
  }
}

}  // namespace qor::engines
