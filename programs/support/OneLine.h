#pragma once

#include <cstddef>
#include <string>

namespace qor::programs {

/// What a reason for a failure is cut to, in bytes: what carries it bounds a message to 65 536 bytes, and its
/// reader's patience is shorter.
inline constexpr std::size_t longestReason = 8'000;

/// A text that others wrote as one readable line: line ends become spaces, and what is too long is cut,
/// between two characters of UTF-8, and ends in "...".
std::string oneLine(std::string text, std::size_t longest = longestReason);

}  // namespace qor::programs
