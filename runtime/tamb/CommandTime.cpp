#include "runtime/tamb/CommandTime.h"

#include <cmath>
#include <limits>

namespace tamb {

namespace {

__extension__ typedef unsigned __int128 Uint128;  // NOLINT(modernize-use-using)

/// dividend / divisor, rounded once, for a dividend below 2^95.
double quotient(Uint128 dividend, std::uint32_t divisor) {
  if (dividend == 0) {
    return 0.0;
  }
  // Scaled so that the quotient has more bits than a double. Its lowest bit stands for all further bits, so
  // that rounding sees on which side of a midpoint the exact quotient lies.
  int shift = 0;
  while ((dividend >> 95) == 0) {
    dividend <<= 1;
    ++shift;
  }
  Uint128 scaled = dividend / divisor;
  if (dividend % divisor != 0) {
    scaled |= 1;
  }
  return std::ldexp(static_cast<double>(scaled), -shift);
}

}  // namespace

CommandTime::CommandTime(const MediaTime& time) : seconds_(-std::numeric_limits<double>::infinity()) {
  const EditRate& rate = time.GetEditRate();
  if (rate.GetNumerator() == 0 || rate.GetDenominator() == 0) {
    return;
  }
  scaled_ = Int128{time.GetTimeNumber()} * rate.GetDenominator();
  numerator_ = rate.GetNumerator();
  const double magnitude = quotient(static_cast<Uint128>(scaled_ < 0 ? -scaled_ : scaled_), numerator_);
  seconds_ = scaled_ < 0 ? -magnitude : magnitude;
}

std::weak_ordering operator<=>(const CommandTime& left, const CommandTime& right) {
  if (!left.HasPlace() || !right.HasPlace()) {
    return left.HasPlace() <=> right.HasPlace();
  }
  const auto leftScaled = left.scaled_ * right.numerator_;  // Below 2^127.
  const auto rightScaled = right.scaled_ * left.numerator_;
  return leftScaled < rightScaled   ? std::weak_ordering::less
         : leftScaled > rightScaled ? std::weak_ordering::greater
                                    : std::weak_ordering::equivalent;
}

}  // namespace tamb
