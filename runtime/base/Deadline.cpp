#include "runtime/base/Deadline.h"

#include <algorithm>
#include <limits>

namespace qor::base {

std::chrono::milliseconds timeUntil(Deadline deadline) {
  using std::chrono::milliseconds;
  const auto left = std::chrono::ceil<milliseconds>(deadline - Deadline::clock::now());
  return std::clamp(left, milliseconds(0), milliseconds(std::numeric_limits<int>::max()));
}

int pollTimeOut(Deadline deadline) { return static_cast<int>(timeUntil(deadline).count()); }

}  // namespace qor::base
