#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "tamb/EditRate.h"
#include "tamb/IClockInfo.h"

namespace tamb {

/// A point in media time: a count of units at an edit rate, and its clock, if known.
class MediaTime {
 public:
  MediaTime() = default;
  MediaTime(const EditRate& editRate, std::int64_t timeNumber, std::shared_ptr<const IClockInfo> clockInfo)
      : editRate_(editRate), timeNumber_(timeNumber), clockInfo_(std::move(clockInfo)) {}

  const EditRate& GetEditRate() const { return editRate_; }
  std::int64_t GetTimeNumber() const { return timeNumber_; }
  /// Empty if the clock is unknown.
  std::shared_ptr<const IClockInfo> GetClockInfo() const { return clockInfo_; }

 private:
  EditRate editRate_;
  std::int64_t timeNumber_ = 0;
  std::shared_ptr<const IClockInfo> clockInfo_;
};

}  // namespace tamb
