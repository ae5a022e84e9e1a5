#include "engines/media/MediaReports.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "engines/sdk/NotificationNames.h"

namespace qor::engines {

namespace {

/// Seconds of media.
constexpr double progressInterval = 0.5;

}  // namespace

MediaReports::MediaReports(const StepNotifications& notifications)
    : notifications_(notifications), start_(Clock::now()), nextProgress_(progressInterval) {}

void MediaReports::started(const std::vector<std::string>& streams, double duration) {
  start_ = Clock::now();
  duration_ = duration;
  NotificationValues values{{"streams", static_cast<std::uint64_t>(streams.size())}};
  for (std::size_t index = 0; index < streams.size(); ++index) {
    values.emplace_back(fmt::format("stream{}", index), streams[index]);
  }
  values.emplace_back("duration", duration);
  notifications_.publish("Started", 0, values);
}

void MediaReports::progress(double position, Clock::duration paused) {
  if (position < nextProgress_) {
    return;
  }
  nextProgress_ = (std::floor(position / progressInterval) + 1) * progressInterval;
  const std::chrono::duration<double> elapsed = Clock::now() - start_ - paused;
  const double percentage = duration_ > 0 ? std::min(position / duration_ * 100, 100.0) : 0.0;
  const double speed = elapsed.count() > 0 ? position / elapsed.count() : 0.0;
  notifications_.publish(
      names::progress, position,
      {{names::position, position}, {names::percentage, percentage}, {names::speed, speed}});
}

void MediaReports::loudness(double position, double momentary, double integrated) const {
  notifications_.publish(names::loudness, position,
                         {{names::momentary, momentary}, {"integrated", integrated}});
}

void MediaReports::fault(const std::string& line, double position, const NotificationValues& values) const {
  notifications_.publish(line, position, values);
}

void MediaReports::finished(const MediaResult& result) const {
  NotificationValues values{{"videoFrames", result.videoFrames},
                            {"audioFrames", result.audioFrames},
                            {"duration", result.duration},
                            {names::stopped, result.stopped},
                            {"decodeErrors", result.faults.decodeErrors},
                            {"timeJumps", result.faults.timeJumps},
                            {"filledGaps", result.faults.filledGaps}};
  if (result.integrated) {
    values.emplace_back("integrated", *result.integrated);
  }
  notifications_.publish(names::finished, result.duration, values);
}

void MediaReports::failed(double position, const std::string& reason) const {
  notifications_.publishError(names::failed, position, {{names::reason, reason}});
}

}  // namespace qor::engines
