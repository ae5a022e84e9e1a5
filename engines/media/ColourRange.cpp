#include "engines/media/ColourRange.h"

#include <cstdint>
#include <optional>
#include <string_view>

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/version.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace qor::engines {

#if LIBAVFILTER_VERSION_MAJOR >= 10

AVColorRange rangeBehind(const AVFilterContext& sink, AVColorRange /*fed*/) {
  return av_buffersink_get_color_range(&sink);
}

#else

namespace {

int option(AVFilterContext& filter, const char* name, int missing) {
  std::int64_t value = missing;
  return av_opt_get_int(&filter, name, AV_OPT_SEARCH_CHILDREN, &value) < 0 ? missing
                                                                           : static_cast<int>(value);
}

bool hasText(AVFilterContext& filter, const char* name) {
  std::uint8_t* text = nullptr;
  const bool isSet = av_opt_get(&filter, name, AV_OPT_SEARCH_CHILDREN | AV_OPT_ALLOW_NULL, &text) >= 0 &&
                     text != nullptr && *text != 0;
  av_free(text);
  return isSet;
}

/// Empty if the range does not change.
std::optional<AVColorRange> scaledTo(AVFilterContext& scale) {
  const auto& in = *scale.inputs[0];
  const auto& out = *scale.outputs[0];
  const int range = option(scale, "out_range", AVCOL_RANGE_UNSPECIFIED);
  if (in.w == out.w && in.h == out.h && in.format == out.format &&
      option(scale, "in_range", AVCOL_RANGE_UNSPECIFIED) == range && !hasText(scale, "out_color_matrix")) {
    return std::nullopt;
  }
  if (range != AVCOL_RANGE_UNSPECIFIED) {
    return static_cast<AVColorRange>(range);
  }
  // Regardless of the input.
  const auto* const format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(out.format));
  const bool isFull =
      (format->flags & AV_PIX_FMT_FLAG_RGB) != 0 || std::string_view(format->name).starts_with("yuvj");
  return isFull ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
}

/// The range that the filter gives to all pictures; empty if it does not change their range.
std::optional<AVColorRange> rangeGivenBy(AVFilterContext& filter) {
  const std::string_view kind = filter.filter->name;
  if (kind == "scale") {
    return scaledTo(filter);
  }
  if (kind == "setparams" || kind == "setrange") {
    const int range = option(filter, "range", -1);
    return range < 0 ? std::nullopt : std::optional(static_cast<AVColorRange>(range));
  }
  if (kind == "zscale") {
    const int range = option(filter, "range", -1);  // It numbers ranges differently.
    return range < 0 ? std::nullopt : std::optional(range == 1 ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG);
  }
  if (kind == "colorspace") {
    const int range = option(filter, "range", AVCOL_RANGE_UNSPECIFIED);
    return range == AVCOL_RANGE_UNSPECIFIED ? std::nullopt : std::optional(static_cast<AVColorRange>(range));
  }
  return std::nullopt;
}

}  // namespace

// Before FFmpeg 7, only pictures carry their range, and the encoder is opened before the first one. So this
// derives what the filters do to the range, from the sink backwards along the first inputs.
AVColorRange rangeBehind(const AVFilterContext& sink, AVColorRange fed) {
  const auto* filter = &sink;
  while (filter->nb_inputs > 0 && filter->inputs[0] != nullptr) {
    auto& before = *filter->inputs[0]->src;
    if (const auto range = before.nb_inputs > 0 ? rangeGivenBy(before) : std::nullopt) {
      return *range;
    }
    filter = &before;
  }
  return std::string_view(filter->filter->name) == "buffer" ? fed : AVCOL_RANGE_UNSPECIFIED;
}

#endif

}  // namespace qor::engines
