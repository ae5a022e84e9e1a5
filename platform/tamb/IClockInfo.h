#pragma once

#include <string>

namespace tamb {

/// Which clock a media time was read from. Immutable: any thread; does not block or throw.
class IClockInfo {
 public:
  virtual ~IClockInfo() = default;
  /// For people.
  virtual std::string GetClockName() const = 0;
};

}  // namespace tamb
