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

/// Seconds; the ends of 100 ms steps are inexact sums.
constexpr double tolerance = 1e-6;

/// Leaves `known` unchanged if the frame has no value: the rest at the end is shorter than a block of 100 ms,
/// for which nothing is measured.
void readValue(const AVFrame& frame, const char* key, double least, double& known) {
  if (const auto* const entry = av_dict_get(frame.metadata, key, nullptr, 0)) {
    const double number = std::strtod(entry->value, nullptr);
    known = std::isfinite(number) ? std::max(number, least) : least;
  }
}

}  // namespace

LoudnessMeter::LoudnessMeter(Report everySecond) : everySecond_(std::move(everySecond)) {}

void LoudnessMeter::measure(const AVFrame& frame, AVRational timeBase) {
  if (!graph_) {
    graph_ = std::make_unique<FilterGraph>(frame, timeBase, AVRational{0, 1},
                                           FilterTexts{.filters = "ebur128=metadata=1"});
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
    readValue(*frame, "lavfi.r128.M", silence, momentary_);
    readValue(*frame, "lavfi.r128.I", gate, integrated_);
    const double end = static_cast<double>(frame->pts) * av_q2d(graph_->format().timeBase) +
                       static_cast<double>(frame->nb_samples) / frame->sample_rate;
    if (end + tolerance >= nextReport_) {
      everySecond_(end, momentary_, integrated_);
      nextReport_ = std::floor(end + tolerance) + 1;
    }
  }
}

}  // namespace qor::engines
