#include "engines/media/MediaFaults.h"

#include "engines/sdk/NotificationNames.h"

namespace qor::engines {

namespace {

/// How many faults of each kind are reported; the rest are only counted, because a broken file may have
/// hundreds of thousands.
constexpr std::uint64_t mostPublished = 20;

}  // namespace

void MediaFaults::gapFilled(double from, double duration) {
  publish(++counts_.filledGaps, "GapFilled", from, {{"duration", duration}});
}

void MediaFaults::undecodable(std::optional<int> stream, double at, const std::string& reason) {
  NotificationValues values;
  if (stream) {
    values.emplace_back("stream", std::int64_t{*stream});
  }
  values.emplace_back(names::reason, reason);
  if (counts_.decodeErrors == 0) {
    firstError_ = reason;
  }
  publish(++counts_.decodeErrors, "DecodeError", at, values);
}

void MediaFaults::leftOut(int stream, const std::string& reason) {
  publish(++streamsLeftOut_, "StreamLeftOut", 0, {{"stream", std::int64_t{stream}}, {names::reason, reason}});
}

void MediaFaults::timeJumped(int stream, double at, double by) {
  publish(++counts_.timeJumps, "TimeJump", at, {{"stream", std::int64_t{stream}}, {"by", by}});
}

void MediaFaults::kindChanged(int stream, double at, const std::string& from, const std::string& to) {
  publish(++kindChanges_, "FormatChanged", at,
          {{"stream", std::int64_t{stream}}, {"from", from}, {"to", to}});
}

void MediaFaults::begin() {
  begun_ = true;
  for (const auto& each : waiting_) {
    reports_.fault(each.line, each.seconds, each.values);
  }
  waiting_.clear();
}

void MediaFaults::publish(std::uint64_t count, const std::string& line, double seconds,
                          const NotificationValues& values) {
  if (count > mostPublished) {
    return;
  }
  if (begun_) {
    reports_.fault(line, seconds, values);
  } else {
    waiting_.push_back({line, seconds, values});
  }
}

}  // namespace qor::engines
