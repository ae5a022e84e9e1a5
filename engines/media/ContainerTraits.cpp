#include "engines/media/ContainerTraits.h"

#include <algorithm>
#include <array>
#include <string_view>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace qor::engines {

namespace {

template <std::size_t Count>
bool isOneOf(const AVOutputFormat& container, const std::array<std::string_view, Count>& names) {
  return std::find(names.begin(), names.end(), container.name) != names.end();
}

constexpr std::array<std::string_view, 3> ofSoundAndPictures{"mp3", "flac", "aiff"};
constexpr std::array<std::string_view, 4> withPictureStreams{"mp3", "flac", "mp4", "ipod"};
/// They store times of samples, but only count samples of PCM.
constexpr std::array<std::string_view, 8> ofQuickTimesFamily{"mov", "mp4",  "ipod", "3gp",
                                                             "3g2", "ismv", "psp",  "f4v"};
constexpr std::array<std::string_view, 6> withTimes{"matroska", "webm", "nut", "mpegts", "asf", "flv"};

}  // namespace

bool holdsNoVideo(const AVOutputFormat& container) { return isOneOf(container, ofSoundAndPictures); }

PictureKind pictureKind(const AVOutputFormat& container, AVCodecID codec) {
  if (codec != AV_CODEC_ID_MJPEG && codec != AV_CODEC_ID_PNG) {
    return PictureKind::None;
  }
  if (std::string_view(container.name) == "matroska") {
    return PictureKind::Attachment;
  }
  return isOneOf(container, withPictureStreams) ? PictureKind::Stream : PictureKind::None;
}

bool holdsGaps(const AVOutputFormat& container, AVCodecID audioCodec) {
  if (isOneOf(container, ofQuickTimesFamily)) {
    return av_get_bits_per_sample(audioCodec) == 0;
  }
  return isOneOf(container, withTimes);
}

}  // namespace qor::engines
