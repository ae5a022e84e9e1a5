#include "engines/media/MediaRun.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>

#include "engines/media/AudioCut.h"
#include "engines/media/FilePath.h"
#include "engines/media/RationalTime.h"
#include "engines/media/StoppedEarly.h"
#include "runtime/tamb/WriteLogRecord.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

namespace {

using tamb::TAMBRuntimeError;

/// Poll interval for commands while a run in real time waits.
constexpr std::chrono::milliseconds waitInterval{20};

/// Seconds. A file that ends earlier than its stated duration by more than this is incomplete.
constexpr double shortfall = 1;

/// The number of the first sample at or after a command's time.
std::int64_t firstSample(const tamb::MediaTime& time, int sampleRate) {
  const auto& rate = time.GetEditRate();
  if (rate.GetNumerator() == 0 || rate.GetDenominator() == 0) {
    return std::numeric_limits<std::int64_t>::min();
  }
  return av_rescale_rnd(time.GetTimeNumber(), std::int64_t{rate.GetDenominator()} * sampleRate,
                        std::int64_t{rate.GetNumerator()}, AV_ROUND_UP);
}

}  // namespace

MediaRun::MediaRun(const MediaDocument& document, MediaCommands& commands, MediaReports& reports,
                   RunWatch& watch, MediaPosition& position)
    : document_(document),
      commands_(commands),
      reports_(reports),
      watch_(watch),
      position_(position),
      faults_(reports, document.onError) {
  commands_.setTarget(this);
}

MediaRun::~MediaRun() { commands_.setTarget(nullptr); }

MediaResult MediaRun::run() {
  requireOtherFile();
  input_.emplace(document_.input, faults_, watch_);
  requireStreams();
  if (!document_.output.empty()) {
    output_.emplace(document_.output, document_.settings, watch_);
  }
  openDecoders();
  openLanes();
  requireNoStop();
  if (output_) {
    for (const auto* picture : input_->pictures()) {
      output_->addPicture(*picture);  // Left out if the container does not support it.
    }
    output_->start(input_->metadata());
  }
  std::vector<std::string> streams;
  for (const auto* decoder : {&videoDecoder_, &audioDecoder_}) {
    if (*decoder) {
      streams.push_back((*decoder)->text());
    }
  }
  position_.duration = input_->duration();
  reports_.started(streams, input_->duration());
  faults_.begin();
  if (document_.startPaused) {
    commands_.waitAtStart();
  }
  process();
  finish();
  return result_;
}

void MediaRun::requireOtherFile() const {
  std::error_code ignored;
  if (std::filesystem::equivalent(filePath(document_.input), filePath(document_.output), ignored)) {
    throw TAMBRuntimeError(fmt::format("Input and output are the same file: {:?}", document_.input));
  }
}

void MediaRun::requireStreams() const {
  const auto require = [this](bool required, const char* what, const void* stream, const char* kind) {
    if (required && stream == nullptr) {
      throw TAMBRuntimeError(
          fmt::format("{} was requested, but {:?} has no {}", what, document_.input, kind));
    }
  };
  require(!document_.videoFilter.empty(), "A video filter", input_->video(), "video");
  require(!document_.audioFilter.empty(), "An audio filter", input_->audio(), "audio");
  require(document_.loudness, "The loudness measurement", input_->audio(), "audio");
}

const char* MediaRun::requirementFor(AVMediaType type) const {
  if (type == AVMEDIA_TYPE_VIDEO) {
    return !document_.videoFilter.empty()           ? "a filter"
           : !document_.settings.videoCodec.empty() ? "a codec"
                                                    : nullptr;
  }
  return !document_.audioFilter.empty() ? "a filter" : document_.loudness ? "a measurement" : nullptr;
}

void MediaRun::openDecoders() {
  // Leaves out streams that the container does not support, unless the document requires them.
  const auto wanted = [this](AVMediaType type) {
    if (!output_ || output_->encoder(type) != nullptr) {
      return true;
    }
    if (const auto* const what = requirementFor(type)) {
      throw TAMBRuntimeError(fmt::format("The container of {:?} cannot hold {}, but {} for it was requested",
                                         document_.output, av_get_media_type_string(type), what));
    }
    return false;
  };
  if (input_->video() != nullptr && wanted(AVMEDIA_TYPE_VIDEO)) {
    videoDecoder_.emplace(*input_, *input_->video(), faults_, false);
  }
  if (input_->audio() != nullptr && wanted(AVMEDIA_TYPE_AUDIO)) {
    audioDecoder_.emplace(*input_, *input_->audio(), faults_, output_ && !output_->holdsGaps());
  }
  if (!videoDecoder_ && !audioDecoder_) {
    throw TAMBRuntimeError(fmt::format("The container of {:?} cannot hold any of the streams of {:?}",
                                       document_.output, document_.input));
  }
}

void MediaRun::openLanes() {
  auto* const output = output_ ? &*output_ : nullptr;
  if (document_.loudness) {
    meter_.emplace([this](double seconds, double momentary, double integrated) {
      reports_.loudness(seconds, momentary, integrated);
    });
  }
  // Leaves out an empty stream if the other one is not empty.
  if (const auto* frame = videoDecoder_ ? videoDecoder_->peek() : nullptr) {
    video_.emplace(*frame, *videoDecoder_, input_->guessedFrameRate(), document_.videoFilter, output, nullptr,
                   faults_);
  }
  if (audioDecoder_ && fetchSound()) {
    audio_.emplace(*sound_, *audioDecoder_, AVRational{0, 1}, document_.audioFilter, output,
                   meter_ ? &*meter_ : nullptr, faults_);
  }
  // A stop interrupts the reading, so a stream without a frame is not necessarily empty then.
  requireNoStop();
  if (!video_ && !audio_) {
    const auto& error = faults_.firstError();
    throw TAMBRuntimeError(
        fmt::format("Nothing in {:?} can be decoded{}{}", document_.input, error.empty() ? "" : ": ", error));
  }
  for (const auto& [decoder, lane] :
       {std::pair{&videoDecoder_, &video_}, std::pair{&audioDecoder_, &audio_}}) {
    if (*decoder && !*lane) {
      leaveOut(**decoder);
    }
  }
}

void MediaRun::leaveOut(StreamDecoder& decoder) {
  const auto index = decoder.stream().index;
  const auto& error = decoder.firstError();
  const bool ended = decoder.ended();
  if (!ended && error.empty()) {
    throw TAMBRuntimeError(
        fmt::format("Stream {} of {:?} begins too long after the other one", index, document_.input));
  }
  const auto* const what = requirementFor(decoder.stream().codecpar->codec_type);
  if (!error.empty() && what != nullptr) {
    throw TAMBRuntimeError(
        fmt::format("Nothing in stream {} of {:?} can be decoded, but {} for it was requested: {}", index,
                    document_.input, what, error));
  }
  std::string reason = "it is empty";
  if (!error.empty()) {
    reason = (ended ? "nothing in it can be decoded: " : "its beginning cannot be decoded: ") + error;
  }
  decoder.end();
  faults_.leftOut(index, reason);
  tamb::WriteLogRecord(tamb::LogLevel::Warning,
                       fmt::format("Stream {} of {:?} is left out: {}", index, document_.input, reason));
}

void MediaRun::process() {
  std::optional<std::uint64_t> waitedAt;
  while (!stopping()) {
    watch_.beat();
    const bool hasPicture = video_ && videoDecoder_->peek() != nullptr;
    const bool hasSound = audio_ && fetchSound();
    if (!hasPicture && !hasSound) {
      if ((!video_ || videoDecoder_->ended()) && (!audio_ || audioDecoder_->ended())) {
        return;
      }
      // Each stream has deferred to the other, whose packets have been taken since.
      if (waitedAt == input_->progress()) {
        throw TAMBRuntimeError(
            fmt::format("Cannot continue {:?} at {:.3f} s: each of its streams waits for the other",
                        document_.input, position()));
      }
      waitedAt = input_->progress();
      continue;
    }
    if (!hasSound) {
      processPicture();
      continue;
    }
    auto end = sound_->pts + sound_->nb_samples;
    if (hasPicture) {
      const auto picture = videoDecoder_->time().firstSample(sound_->sample_rate);
      if (picture <= soundPosition()) {
        processPicture();
        continue;
      }
      end = std::min(end, picture);
    }
    processSound(end);
  }
}

void MediaRun::requireNoStop() const {
  if (watch_.stopRequested()) {
    throw StoppedEarly();
  }
}

void MediaRun::requireWanted() const {
  if (!stopped_ && watch_.abandoned()) {
    throw StoppedEarly();
  }
}

void MediaRun::finish() {
  requireWanted();
  result_.stopped = stopping();
  // A stopped run pulls no more than it has pushed.
  const auto wanted = [this](double seconds) {
    watch_.beat();
    commands_.executeUntil(position());
    return !stopping() || seconds < result_.duration;
  };
  soundLimit_ = std::numeric_limits<std::int64_t>::min();
  for (auto* lane : {&video_, &audio_}) {
    if (*lane) {
      (*lane)->finish(wanted);
    }
  }
  requireWanted();
  if (meter_) {
    meter_->finish();
    result_.integrated = meter_->integrated();
  }
  if (output_) {
    output_->finish();
  }
  result_.stopped = stopping();
  result_.faults = faults_.counts();
  if (const auto errors = result_.faults.decodeErrors; errors > 0) {
    tamb::WriteLogRecord(
        tamb::LogLevel::Warning,
        fmt::format("{:?}: {} parts could not be decoded and were skipped", document_.input, errors));
  }
  if (const auto jumps = result_.faults.timeJumps; jumps > 0) {
    tamb::WriteLogRecord(tamb::LogLevel::Warning,
                         fmt::format("{:?}: the time jumps {} times; the output goes on without a jump",
                                     document_.input, jumps));
  }
  if (!result_.stopped && result_.duration + shortfall < input_->duration()) {
    tamb::WriteLogRecord(tamb::LogLevel::Warning,
                         fmt::format("{:?} ends at {:.3f} s, although its duration is given as {:.3f} s",
                                     document_.input, result_.duration, input_->duration()));
  }
}

void MediaRun::processPicture() {
  const auto time = videoDecoder_->time();
  const double seconds = time.seconds();
  soundLimit_ = std::numeric_limits<std::int64_t>::min();
  waitFor(seconds);
  commands_.executeUntil(seconds);
  if (stopping()) {
    return;
  }
  ++result_.videoFrames;
  if (!video_->push(videoDecoder_->take(), watch_)) {
    return;
  }
  const auto rate = input_->guessedFrameRate();
  reach(seconds, seconds + (rate.num > 0 ? av_q2d(av_inv_q(rate)) : 0));
}

void MediaRun::processSound(std::int64_t end) {
  const double sampleRate = sound_->sample_rate;
  soundLimit_ = soundPosition();
  waitFor(static_cast<double>(soundPosition()) / sampleRate);
  if (stopping()) {
    return;
  }
  soundLimit_ = end;
  commands_.executeUntil(static_cast<double>(end - 1) / sampleRate);
  if (!stopping()) {
    advanceSound(end);
  }
}

void MediaRun::advanceTo(const tamb::MediaTime& time) {
  if (sound_) {
    advanceSound(std::min(firstSample(time, sound_->sample_rate), soundLimit_));
  }
}

void MediaRun::advanceSound(std::int64_t end) {
  if (!sound_ || end <= soundPosition()) {
    return;
  }
  const int sampleRate = sound_->sample_rate;
  const auto count = static_cast<int>(end - soundPosition());
  auto part = count == sound_->nb_samples ? std::move(sound_) : cutAudio(*sound_, soundOffset_, count);
  if (sound_ && soundOffset_ + count < sound_->nb_samples) {
    soundOffset_ += count;
  } else {
    sound_.reset();
    result_.audioFrames += soundIsFill_ ? 0 : 1;
  }
  if (!audio_->push(std::move(part), watch_)) {
    return;
  }
  const double seconds = static_cast<double>(end) / sampleRate;
  reach(seconds, seconds);
}

bool MediaRun::fetchSound() {
  if (!sound_ && audioDecoder_->peek() != nullptr) {
    soundIsFill_ = audioDecoder_->isFill();
    sound_ = audioDecoder_->take();
    soundOffset_ = 0;
  }
  return sound_ != nullptr;
}

void MediaRun::commandFilter(const std::string& target, const std::string& command,
                             const std::string& argument) {
  using Answer = FilterGraph::Answer;
  auto best = Answer::NoSuchFilter;
  for (auto* lane : {&video_, &audio_}) {
    if (*lane) {
      best = std::max(best, (*lane)->filters().command(target, command, argument));
    }
  }
  if (best == Answer::NoSuchFilter) {
    throw TAMBRuntimeError(fmt::format("the run has no filter {:?}", target));
  }
  if (best == Answer::UnknownCommand) {
    throw TAMBRuntimeError(fmt::format("the filter {:?} has no command {:?}", target, command));
  }
}

void MediaRun::waitFor(double mediaSeconds) {
  if (!document_.realTime) {
    return;
  }
  while (!stopping()) {
    const auto now = RunWatch::Clock::now();
    const auto due = pacer_.due(mediaSeconds, commands_.paused());
    if (now >= due) {
      return;
    }
    watch_.beat();
    watch_.sleepUntil(std::min(due, now + waitInterval));
    commands_.executeUntil(position());
  }
}

void MediaRun::reach(double position, double end) {
  // Time steps back if one stream was processed first because the other had no packets.
  position_.position = std::max(position_.position.load(), position);
  result_.duration = std::max(result_.duration, end);
  reports_.progress(position_.position, commands_.paused());
}

}  // namespace qor::engines
