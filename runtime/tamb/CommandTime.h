#pragma once

#include <compare>
#include <cstdint>

#include "tamb/MediaTime.h"

namespace tamb {

/// When a command is due: its media time in seconds. Times are ordered exactly, whatever their edit rates and
/// magnitudes; 1 at 25/1 equals 2 at 50/1. A media time whose edit rate has a zero member has no position in
/// time and precedes every other.
class CommandTime {
 public:
  explicit CommandTime(const MediaTime& time);

  /// False if the edit rate has a zero member.
  bool HasPlace() const { return numerator_ != 0; }

  /// The double nearest to the exact time, which is also the result of dividing the same numbers as doubles;
  /// a later time never has fewer seconds. Minus infinity without a position in time.
  double Seconds() const { return seconds_; }

  friend std::weak_ordering operator<=>(const CommandTime& left, const CommandTime& right);

 private:
  // Not an alias: __extension__ silences -Wpedantic in both compilers only before a typedef.
  __extension__ typedef __int128 Int128;  // NOLINT(modernize-use-using)

  /// Magnitude below 2^95.
  Int128 scaled_ = 0;
  std::uint32_t numerator_ = 0;
  double seconds_;
};

}  // namespace tamb
