#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engines/media/FfmpegHandles.h"
#include "engines/media/InterruptiblePipe.h"
#include "engines/media/MediaDocument.h"
#include "engines/media/OutputFile.h"
#include "engines/media/StreamEncoder.h"
#include "engines/sdk/RunWatch.h"

namespace qor::engines {

/// Writes the encoded streams to a container. The same packets give the same bytes: the container holds no
/// times of day, random numbers or versions.
class MediaOutput {
 public:
  /// Opens nothing before start().
  MediaOutput(const std::string& location, const MediaSettings& settings, RunWatch& watch);
  /// Removes an unfinished output.
  ~MediaOutput();
  MediaOutput(const MediaOutput&) = delete;
  MediaOutput& operator=(const MediaOutput&) = delete;

  /// Null if the container does not support such streams.
  const AVCodec* encoder(AVMediaType type) const { return chosen(type); }

  /// Whether sound may begin late and pause in this container.
  bool holdsGaps() const;

  /// Adds a stream for frames like `first`. Add all streams before start().
  StreamEncoder& addStream(AVMediaType type, const AVFrame& first, const FilteredFormat& format);
  /// Adds an album picture unchanged, unless the container does not support it. Add all pictures before
  /// start().
  void addPicture(const AVStream& picture);
  /// Throws StoppedEarly if a stop is requested while a named pipe has no reader.
  void start(const AVDictionary* metadata);
  /// Flushes the encoders and completes the file.
  void finish();

 private:
  struct Stream {
    std::unique_ptr<StreamEncoder> encoder;
    AVStream* stream = nullptr;
  };
  struct Picture {
    PacketHandle packet;
    AVStream* stream = nullptr;
  };

  AVStream& newStream();
  void attach(AVStream& stream, const AVStream& picture) const;

  const AVCodec* chosen(AVMediaType type) const { return type == AVMEDIA_TYPE_VIDEO ? video_ : audio_; }
  void write(const AVStream& stream, AVRational timeBase, AVPacket& packet);
  void close();
  std::string failed() const;

  const std::string location_;
  RunWatch& watch_;
  OutputFile file_;
  std::optional<InterruptiblePipe> pipe_;
  const AVOutputFormat& container_;
  const AVCodec* const video_;
  const AVCodec* const audio_;
  OutputHandle context_;
  std::vector<Stream> streams_;
  std::vector<Picture> pictures_;
};

}  // namespace qor::engines
