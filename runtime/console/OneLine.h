#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qor::console {

/// What a reason for a failure is cut to, in bytes: what carries it bounds a message to 65 536 bytes, and its
/// reader's patience is shorter.
inline constexpr std::size_t longestReason = 8'000;

/// A text that others wrote as one readable line of UTF-8, which every terminal and every message can carry:
/// line ends and all other characters that a terminal obeys, but tabs, become spaces, bytes that are not
/// UTF-8 become question marks, and a longer text is cut between two characters and ends in "...".
std::string oneLine(std::string_view text, std::size_t longest = longestReason);

}  // namespace qor::console
