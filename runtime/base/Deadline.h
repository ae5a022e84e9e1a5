#pragma once

#include <chrono>

namespace qor::base {

/// The point in steady time at which a wait ends.
using Deadline = std::chrono::steady_clock::time_point;

/// The time left until the deadline, in whole milliseconds: rounded up, so that a wait of that length never
/// ends early; 0 once the deadline has passed; at most the largest int. Any thread.
std::chrono::milliseconds timeUntil(Deadline deadline);

/// The same as the time-out argument of poll.
int pollTimeOut(Deadline deadline);

}  // namespace qor::base
