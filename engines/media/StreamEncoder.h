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
  /// Receives each packet, with times in units of timeBase().
  using Writer = std::function<void(AVPacket&)>;

  /// `first` is the first frame that will be encoded, in the given format. `globalHeader` is the container's
  /// requirement.
  StreamEncoder(const AVCodec& encoder, const AVFrame& first, const FilteredFormat& format, bool globalHeader,
                Writer writer);

  void encode(AVFrame& frame, AVRational timeBase);
  /// Delivers the packets that the encoder holds back; nothing can be encoded afterwards.
  void finish();

  const AVCodecContext& context() const { return *codec_; }
  /// For audio: the required number of samples per frame, except the last.
  unsigned int frameSize() const;

 private:
  void setUpVideo(const AVFrame& first, const FilteredFormat& format);
  void setUpAudio(const AVFrame& first);
  void send(const AVFrame* frame);

  CodecHandle codec_;
  /// For example `the video encoder "mpeg4" (64x48)`. Stored, because an encoder that failed to open has lost
  /// these values.
  std::string text_;
  const Writer writer_;
  PacketHandle packet_;
  std::int64_t next_;  ///< minimum time stamp of the next frame
};

}  // namespace qor::engines
