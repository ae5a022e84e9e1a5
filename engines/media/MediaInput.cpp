#include "engines/media/MediaInput.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "engines/media/FfmpegCalls.h"
#include "engines/media/StoppedEarly.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

namespace {

/// Of compressed data; this is seconds to minutes, reached only if one stream has a gap or ends early.
constexpr std::size_t longestQueueBytes = 32U << 20U;
constexpr std::size_t longestQueue = 20'000;

int stopRequested(void* watch) {
  auto& itsWatch = *static_cast<RunWatch*>(watch);
  itsWatch.beat();  // An interruptible read is a sign of life, however long it waits for data.
  return itsWatch.stopRequested() ? 1 : 0;
}

bool isPicture(const AVStream& stream) { return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0; }

}  // namespace

MediaInput::MediaInput(const std::string& location, MediaFaults& faults, RunWatch& watch)
    : location_(location),
      faults_(faults),
      watch_(watch),
      pipe_(location, InterruptiblePipe::Direction::Read, watch) {
  auto* context = avformat_alloc_context();
  if (context == nullptr) {
    throw std::bad_alloc();
  }
  context->interrupt_callback = {stopRequested, &watch};
  const auto url = pipe_.isPipe() ? pipe_.url() : location;
  const auto text = [&] { return fmt::format("Cannot open {:?}", location_); };
  try {
    // On failure it frees the context.
    ffmpegCall([&] { return avformat_open_input(&context, url.c_str(), nullptr, nullptr); }, text);
    context_.reset(context);
    forgetFfmpegErrorLine();
    const int result = avformat_find_stream_info(context, nullptr);
    if (result < 0 && (!faults.skipsErrors() || watch.stopRequested() || context->nb_streams == 0)) {
      throwFfmpegError(result, text());
    }
  } catch (...) {
    if (watch.stopRequested()) {
      throw StoppedEarly();
    }
    throw;
  }
  video_ = findBest(AVMEDIA_TYPE_VIDEO);
  audio_ = findBest(AVMEDIA_TYPE_AUDIO);
  if (video_ == nullptr && audio_ == nullptr) {
    throw tamb::TAMBRuntimeError(
        fmt::format("Cannot open {:?}: it has neither video nor audio that can be decoded", location_));
  }
  times_.emplace(*context_, location_, faults_);
  for (unsigned int index = 0; index < context_->nb_streams; ++index) {
    context_->streams[index]->discard = AVDISCARD_ALL;
    reportLeftOut(*context_->streams[index]);
  }
}

void MediaInput::select(AVStream& stream) {
  stream.discard = AVDISCARD_DEFAULT;
  queues_[stream.index];
}

void MediaInput::deselect(AVStream& stream) {
  stream.discard = AVDISCARD_ALL;
  queues_.erase(stream.index);
  ++progress_;
}

AVRational MediaInput::guessedFrameRate() const {
  return av_guess_frame_rate(context_.get(), video_, nullptr);
}

double MediaInput::duration() const {
  return context_->duration == AV_NOPTS_VALUE || context_->duration < 0
             ? 0
             : static_cast<double>(context_->duration) / AV_TIME_BASE;
}

std::int64_t MediaInput::startTime(const AVStream& stream) const {
  return context_->start_time == AV_NOPTS_VALUE
             ? 0
             : av_rescale_q(context_->start_time, AVRational{1, AV_TIME_BASE}, stream.time_base);
}

MediaInput::Outcome MediaInput::nextPacket(const AVStream& stream, PacketHandle& packet) {
  auto& queue = queues_.at(stream.index);
  while (queue.packets.empty()) {
    if (ended_) {
      return Outcome::End;
    }
    if (queueIsFull()) {
      return Outcome::OthersFirst;
    }
    readOne();
  }
  packet = std::move(queue.packets.front());
  queue.packets.pop_front();
  queue.bytes -= static_cast<std::size_t>(packet->size);
  ++progress_;
  return Outcome::Packet;
}

bool MediaInput::stepsBack(const AVStream& stream, std::int64_t before, std::int64_t until) {
  const auto& packets = queues_.at(stream.index).packets;
  for (std::size_t index = 0;; ++index) {
    while (index >= packets.size()) {
      if (ended_ || queueIsFull()) {
        return false;
      }
      readOne();
    }
    const auto& packet = *packets[index];
    const auto time = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    if (time != AV_NOPTS_VALUE && (time < before || time >= until)) {
      return time < before;
    }
  }
}

std::vector<const AVStream*> MediaInput::pictures() const {
  std::vector<const AVStream*> pictures;
  for (unsigned int index = 0; index < context_->nb_streams; ++index) {
    const auto* const stream = context_->streams[index];
    if (isPicture(*stream) && stream->attached_pic.size > 0) {
      pictures.push_back(stream);
    }
  }
  return pictures;
}

AVStream* MediaInput::findBest(AVMediaType type) {
  int index = av_find_best_stream(context_.get(), type, -1, -1, nullptr, 0);
  if (index >= 0 && faults_.skipsErrors() &&
      avcodec_find_decoder(context_->streams[index]->codecpar->codec_id) == nullptr) {
    const AVCodec* decoder = nullptr;  // With this argument, FFmpeg skips streams without a decoder.
    const int other = av_find_best_stream(context_.get(), type, -1, -1, &decoder, 0);
    if (other < 0) {
      faults_.leftOut(index, "no decoder is available");
    }
    index = other;
  }
  if (index < 0 || !isPicture(*context_->streams[index])) {
    return index < 0 ? nullptr : context_->streams[index];
  }
  // FFmpeg prefers an album picture that comes before the video: choose the first stream that is not a
  // picture.
  for (unsigned int other = 0; other < context_->nb_streams; ++other) {
    auto* const stream = context_->streams[other];
    if (stream->codecpar->codec_type == type && !isPicture(*stream) &&
        avcodec_find_decoder(stream->codecpar->codec_id) != nullptr) {
      return stream;
    }
  }
  return nullptr;
}

void MediaInput::readOne() {
  auto packet = makePacket();
  forgetFfmpegErrorLine();
  const int result = av_read_frame(context_.get(), packet.get());
  // The end of the data. FFmpeg returns errors of disk and network even if a demuxer mistakes them for the
  // end.
  if (result == AVERROR_EOF || (result < 0 && watch_.stopRequested())) {
    ended_ = true;
    return;
  }
  if (result == AVERROR(EAGAIN)) {
    return;
  }
  if (result < 0) {
    endAtError(result);
    return;
  }
  const auto queue = queues_.find(packet->stream_index);
  if (queue == queues_.end()) {
    reportLeftOut(*context_->streams[packet->stream_index]);
    return;
  }
  times_->correct(*packet);
  const auto& stream = *context_->streams[packet->stream_index];
  if (packet->dts != AV_NOPTS_VALUE) {
    lastSeconds_ =
        static_cast<double>(av_sat_sub64(packet->dts, startTime(stream))) * av_q2d(stream.time_base);
  }
  queue->second.bytes += static_cast<std::size_t>(packet->size);
  queue->second.packets.push_back(std::move(packet));
}

void MediaInput::reportLeftOut(const AVStream& stream) {
  const auto type = stream.codecpar->codec_type;
  const auto* const taken = type == AVMEDIA_TYPE_VIDEO   ? video_
                            : type == AVMEDIA_TYPE_AUDIO ? audio_
                                                         : nullptr;
  if ((context_->iformat->flags & AVFMT_TS_DISCONT) == 0 || taken == nullptr || taken == &stream ||
      isPicture(stream) || !leftOut_.insert(stream.index).second) {
    return;
  }
  faults_.leftOut(stream.index, fmt::format("the run uses stream {} as its {}", taken->index,
                                            av_get_media_type_string(type)));
}

void MediaInput::endAtError(int error) {
  // After an error of disk or network, the rest of the data is unknown.
  const bool isDamaged = context_->pb != nullptr && context_->pb->error >= 0;
  if (!isDamaged || !faults_.skipsErrors()) {
    throwFfmpegError(error, fmt::format("Cannot read {:?}", location_));
  }
  faults_.undecodable(std::nullopt, std::max(lastSeconds_, 0.0),
                      "the rest of the file cannot be read: " + ffmpegErrorText(error));
  ended_ = true;
}

bool MediaInput::queueIsFull() const {
  return std::any_of(queues_.begin(), queues_.end(), [](const auto& each) {
    return each.second.bytes > longestQueueBytes || each.second.packets.size() > longestQueue;
  });
}

}  // namespace qor::engines
