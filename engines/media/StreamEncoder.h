#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "engines/media/FfmpegHandles.h"
#include "engines/media/FilterGraph.h"

namespace qor::engines {

/// Encodes one stream, without threads, so that the same frames give the same bytes.
class StreamEncoder {
 public:
  /// Gets each packet, in the units of timeBase().
  using Writer = std::function<void(AVPacket&)>;

  /// `first` is the first frame that will come, of the format given. `globalHeader` is what the container
  /// wants.
  StreamEncoder(const AVCodec& encoder, const AVFrame& first, const FilteredFormat& format, bool globalHeader,
                Writer writer);

  void encode(AVFrame& frame, AVRational timeBase);
  /// Hands out what the encoder holds back; nothing can be encoded after it.
  void finish();

  const AVCodecContext& context() const { return *codec_; }
  /// Of audio: how many samples each frame but the last is to have.
  unsigned int frameSize() const;

 private:
  void setUpVideo(const AVFrame& first, const FilteredFormat& format);
  void setUpAudio(const AVFrame& first);
  void send(const AVFrame* frame);

  CodecHandle codec_;
  /// As in `the video encoder "mpeg4" (64x48)`. An encoder that did not open knows nothing of it any more.
  std::string text_;
  const Writer writer_;
  PacketHandle packet_;
  std::int64_t next_;  ///< no frame may have an earlier time stamp
};

}  // namespace qor::engines
