#pragma once

#include <string>

namespace tamb {

/// Identifies the clock of a media time. Immutable: any thread; does not block or throw.
class IClockInfo {
 public:
  virtual ~IClockInfo() = default;
  /// For people.
  virtual std::string GetClockName() const = 0;
};

}  // namespace tamb
