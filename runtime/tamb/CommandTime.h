#pragma once

#include <compare>
#include <cstdint>

#include "tamb/MediaTime.h"

namespace tamb {

/// When a command is due: its media time in seconds. Times are ordered exactly, whatever their edit rates and
/// however large they are; 1 at 25/1 equals 2 at 50/1. A media time whose edit rate has a zero member has no
/// place in time: it comes before every other.
class CommandTime {
 public:
  explicit CommandTime(const MediaTime& time);

  /// False when the edit rate has a zero member.
  bool HasPlace() const { return numerator_ != 0; }

  /// The double nearest to the exact time, hence the very value that a caller gets from dividing the same
  /// numbers; a later time never has fewer seconds. Minus infinity without a place in time.
  double Seconds() const { return seconds_; }

  friend std::weak_ordering operator<=>(const CommandTime& left, const CommandTime& right);

 private:
  // Not an alias: only before a typedef does the mark silence -Wpedantic in both compilers.
  __extension__ typedef __int128 Int128;  // NOLINT(modernize-use-using)

  /// Less than 2^95 in magnitude.
  Int128 scaled_ = 0;
  std::uint32_t numerator_ = 0;
  double seconds_;
};

}  // namespace tamb
