#pragma once

#include <memory>

#include "tamb/IClockInfo.h"
#include "tamb/MediaTime.h"

namespace tamb {

/// A source of media time. Any thread; does not block or throw.
class IMediaClock {
 public:
  virtual ~IMediaClock() = default;
  virtual MediaTime GetCurrentTime() const = 0;
  virtual std::shared_ptr<const IClockInfo> GetClockInfo() const = 0;
};

}  // namespace tamb
