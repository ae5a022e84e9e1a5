#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qor::console {

/// Maximum length in bytes of the reason for a failure; far below the limit of the messages that carry it.
inline constexpr std::size_t longestReason = 8'000;

/// Turns foreign text into one line of UTF-8 that every terminal and message can hold: control characters
/// except tabs become spaces, bytes that are not UTF-8 become question marks, and a text longer than
/// `longest` bytes is cut between two characters and ends in "...".
std::string oneLine(std::string_view text, std::size_t longest = longestReason);

}  // namespace qor::console
