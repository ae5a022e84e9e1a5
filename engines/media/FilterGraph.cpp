#include "engines/media/FilterGraph.h"

#include <fmt/format.h>

#include <memory>
#include <utility>

#include "engines/media/ColourRange.h"
#include "engines/media/FfmpegCalls.h"
#include "engines/media/FrameKind.h"
#include "tamb/TAMBRuntimeError.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavfilter/version.h>
#include <libavutil/channel_layout.h>
#include <libavutil/common.h>
#include <libavutil/mem.h>
#include <libavutil/pixdesc.h>
#include <libavutil/samplefmt.h>
}

namespace qor::engines {

namespace {

AVFilterContext* makeFilter(AVFilterGraph& graph, const std::string& kind, const std::string& name) {
  auto* const filter = avfilter_graph_alloc_filter(&graph, avfilter_get_by_name(kind.c_str()), name.c_str());
  if (filter == nullptr) {
    throw tamb::TAMBRuntimeError(fmt::format("Cannot make the filter {:?}", kind));
  }
  return filter;
}

/// Of a text as in "format=pix_fmts=yuv420p".
AVFilterContext* makeFilterOfText(AVFilterGraph& graph, const std::string& text, const std::string& name) {
  const auto separator = text.find('=');
  auto* const filter = makeFilter(graph, text.substr(0, separator), name);
  const auto arguments = separator == std::string::npos ? std::string() : text.substr(separator + 1);
  ffmpegCall([&] { return avfilter_init_str(filter, arguments.empty() ? nullptr : arguments.c_str()); },
             [&] { return fmt::format("Cannot make the filter {:?}", text); });
  return filter;
}

AVFilterContext* makeSource(AVFilterGraph& graph, const AVFrame& like, AVRational timeBase,
                            AVRational frameRate) {
  auto* const source = makeFilter(graph, isVideo(like) ? "buffer" : "abuffer", "in");
  const std::unique_ptr<AVBufferSrcParameters, FreeMemory> parameters(av_buffersrc_parameters_alloc());
  if (!parameters) {
    throw std::bad_alloc();
  }
  parameters->format = like.format;
  parameters->time_base = timeBase;
  parameters->width = like.width;
  parameters->height = like.height;
  parameters->sample_aspect_ratio = like.sample_aspect_ratio;
  parameters->frame_rate = frameRate;
  parameters->hw_frames_ctx = nullptr;
  parameters->sample_rate = like.sample_rate;
  parameters->ch_layout = like.ch_layout;
#if LIBAVFILTER_VERSION_MAJOR >= 10
  parameters->color_space = like.colorspace;
  parameters->color_range = like.color_range;
#endif
  const auto text = [&] { return fmt::format("Cannot filter {}", kindText(like)); };
  ffmpegCall([&] { return av_buffersrc_parameters_set(source, parameters.get()); }, text);
  ffmpegCall([&] { return avfilter_init_str(source, nullptr); }, text);
  return source;
}

InOutHandle openEnd(const char* name, AVFilterContext* filter) {
  auto end = allocated<InOutHandle>(avfilter_inout_alloc());
  end->name = av_strdup(name);
  end->filter_ctx = filter;
  end->pad_idx = 0;
  end->next = nullptr;
  return end;
}

}  // namespace

FilterGraph::FilterGraph(const AVFrame& like, AVRational timeBase, AVRational frameRate,
                         const FilterTexts& texts)
    : filters_(texts.filters),
      frameDuration_(frameRate.num > 0 && frameRate.den > 0 ? av_rescale_q(1, av_inv_q(frameRate), timeBase)
                                                            : 0),
      like_(kindOf(like)),
      graph_(allocated<GraphHandle>(avfilter_graph_alloc())) {
  const auto text = [this] { return "Cannot use " + quotedFilters(); };
  graph_->nb_threads = 1;
  graph_->thread_type = 0;
  graph_->scale_sws_opts = av_strdup("flags=bicubic+accurate_rnd+bitexact");
  source_ = makeSource(*graph_, like, timeBase, frameRate);
  sink_ = makeFilter(*graph_, isVideo(like) ? "buffersink" : "abuffersink", "out");
  ffmpegCall([&] { return avfilter_init_str(sink_, nullptr); }, text);
  auto* from = source_;
  for (std::size_t index = 0; index < texts.first.size(); ++index) {
    auto* const filter = makeFilterOfText(*graph_, texts.first[index], fmt::format("first{}", index));
    ffmpegCall([&] { return avfilter_link(from, 0, filter, 0); }, text);
    from = filter;
  }
  auto* to = sink_;
  if (!texts.last.empty()) {
    to = makeFilterOfText(*graph_, texts.last, "last");
    ffmpegCall([&] { return avfilter_link(to, 0, sink_, 0); }, text);
  }
  connect(from, to);
  ffmpegCall([&] { return avfilter_graph_config(graph_.get(), nullptr); }, text);
}

/// Connects them by the given filters.
void FilterGraph::connect(AVFilterContext* from, AVFilterContext* to) const {
  const auto text = [this] { return "Cannot use " + quotedFilters(); };
  if (filters_.empty()) {
    ffmpegCall([&] { return avfilter_link(from, 0, to, 0); }, text);
    return;
  }
  // Named from the filters' side: their input is the source's output.
  auto* outputs = openEnd("in", from).release();
  auto* inputs = openEnd("out", to).release();
  forgetFfmpegErrorLine();
  const int result = avfilter_graph_parse_ptr(graph_.get(), filters_.c_str(), &inputs, &outputs, nullptr);
  const InOutHandle unusedInputs(inputs);
  const InOutHandle unusedOutputs(outputs);
  if (result < 0) {
    throwFfmpegError(result, text());
  }
}

void FilterGraph::setFrameSize(unsigned int samples) { av_buffersink_set_frame_size(sink_, samples); }

void FilterGraph::push(FrameHandle frame) {
  requireSameKind(*frame);
  end_ = av_sat_add64(frame->pts, isVideo(*frame) ? frameDuration_ : frame->nb_samples);
  forgetFfmpegErrorLine();
  // Without this flag, the frame would wait before the filters, where a command would overtake it.
  const int result = av_buffersrc_add_frame_flags(source_, frame.get(), AV_BUFFERSRC_FLAG_PUSH);
  // Since FFmpeg 7, AVERROR_EOF reports here that a filter such as "trim=end=1" has ended.
  if (result < 0 && result != AVERROR_EOF) {
    throwFfmpegError(result, quotedFilters() + " failed");
  }
}

void FilterGraph::finish() {
  // From the end time, a filter that repeats frames computes how often to repeat the last one.
  ffmpegCall([&] { return av_buffersrc_close(source_, end_, AV_BUFFERSRC_FLAG_PUSH); },
             [this] { return quotedFilters() + " failed at the end"; });
}

FrameHandle FilterGraph::pull() {
  auto frame = makeFrame();
  forgetFfmpegErrorLine();
  const int result = av_buffersink_get_frame(sink_, frame.get());
  if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
    return nullptr;
  }
  if (result < 0) {
    throwFfmpegError(result, quotedFilters() + " failed");
  }
  return frame;
}

FilteredFormat FilterGraph::format() const {
  const bool video = av_buffersink_get_type(sink_) == AVMEDIA_TYPE_VIDEO;
  return {av_buffersink_get_time_base(sink_), video ? av_buffersink_get_frame_rate(sink_) : AVRational{0, 1}};
}

FrameHandle FilterGraph::outputLike() const {
  auto frame = makeFrame();
  frame->format = av_buffersink_get_format(sink_);
  if (isVideo(*like_)) {
    frame->width = av_buffersink_get_w(sink_);
    frame->height = av_buffersink_get_h(sink_);
    frame->sample_aspect_ratio = av_buffersink_get_sample_aspect_ratio(sink_);
    frame->color_range = rangeBehind(*sink_, like_->color_range);
    if (frame->format == like_->format) {
      frame->color_primaries = like_->color_primaries;
      frame->color_trc = like_->color_trc;
      frame->colorspace = like_->colorspace;
    }
#if LIBAVFILTER_VERSION_MAJOR >= 10
    frame->colorspace = av_buffersink_get_colorspace(sink_);
#endif
  } else {
    frame->sample_rate = av_buffersink_get_sample_rate(sink_);
    ffmpegCall([&] { return av_buffersink_get_ch_layout(sink_, &frame->ch_layout); },
               [this] { return quotedFilters() + " failed"; });
  }
  return frame;
}

FilterGraph::Answer FilterGraph::command(const std::string& target, const std::string& name,
                                         const std::string& argument) {
  bool found = false;
  bool done = false;
  for (unsigned int index = 0; index < graph_->nb_filters; ++index) {
    auto* const filter = graph_->filters[index];
    if (target != "all" && target != filter->name && target != filter->filter->name) {
      continue;
    }
    found = true;
    forgetFfmpegErrorLine();
    const int result = avfilter_process_command(filter, name.c_str(), argument.c_str(), nullptr, 0, 0);
    if (result == AVERROR(ENOSYS)) {
      continue;
    }
    if (result < 0) {
      throwFfmpegError(result, fmt::format("The filter {:?} rejected {:?} {:?}", std::string(filter->name),
                                           name, argument));
    }
    done = true;
  }
  if (done) {
    return Answer::Done;
  }
  return found ? Answer::UnknownCommand : Answer::NoSuchFilter;
}

void FilterGraph::requireSameKind(const AVFrame& frame) const {
  if (!sameKind(frame, *like_)) {
    throw tamb::TAMBRuntimeError(fmt::format("Cannot filter the stream: its format changes from {} to {}",
                                             kindText(*like_), kindText(frame)));
  }
}

std::string FilterGraph::quotedFilters() const {
  return filters_.empty() ? fmt::format("the {} without filters", isVideo(*like_) ? "video" : "audio")
                          : fmt::format("the {} filter {:?}", isVideo(*like_) ? "video" : "audio", filters_);
}

}  // namespace qor::engines
