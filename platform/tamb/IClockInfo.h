#pragma once

#include <string>

namespace tamb {

/// Which clock a media time was read from.
class IClockInfo {
 public:
  virtual ~IClockInfo() = default;
  virtual std::string GetClockName() const = 0;
};

}  // namespace tamb
