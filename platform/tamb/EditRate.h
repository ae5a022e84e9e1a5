#pragma once

#include <cstdint>

namespace tamb {

/// A rational rate in units per second: 25/1 is 25 frames a second, 30000/1001 is NTSC. The members are
/// kept as given, neither reduced nor checked; a rate with a zero member names no duration.
class EditRate {
 public:
  constexpr EditRate() = default;
  constexpr EditRate(std::uint32_t numerator, std::uint32_t denominator)
      : numerator_(numerator), denominator_(denominator) {}

  constexpr std::uint32_t GetNumerator() const { return numerator_; }
  constexpr std::uint32_t GetDenominator() const { return denominator_; }

  /// Member by member: 50/2 differs from 25/1.
  friend constexpr bool operator==(const EditRate&, const EditRate&) = default;

 private:
  std::uint32_t numerator_ = 0;
  std::uint32_t denominator_ = 1;
};

}  // namespace tamb
