#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <string_view>

#include "fuzz/Require.h"

namespace qor::fuzz {

/// The length in bytes of the UTF-8 character at the beginning of a text; 0 if there is none.
inline std::size_t bytesOfFirstCharacter(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) < 0x80) return 1;
  const std::size_t length = byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : 2;
  if (byte(0) < 0xC2 || byte(0) > 0xF4 || text.size() < length) return 0;
  char32_t character = byte(0) & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80U) return 0;
    character = (character << 6U) | (byte(i) & 0x3FU);
  }
  constexpr std::array<char32_t, 5> firstOfLength{0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
  return character < firstOfLength.at(length) || character > 0x10FFFF || isSurrogate ? 0 : length;
}

/// A text for people: characters of UTF-8 that do not move a terminal's cursor.
inline void requireReadableLine(std::string_view text, std::size_t longest) {
  const auto isControl = [](unsigned char byte) { return (byte < 0x20 && byte != '\t') || byte == 0x7f; };
  const char* wrong = nullptr;
  if (text.empty()) wrong = "a failure has a reason";
  if (text.size() > longest) wrong = "the line is of bounded length";
  if (std::any_of(text.begin(), text.end(), isControl)) wrong = "the line has no control characters";
  for (auto rest = text; wrong == nullptr && !rest.empty();) {
    const std::size_t length = bytesOfFirstCharacter(rest);
    if (length == 0) wrong = "the line is UTF-8";
    rest.remove_prefix(length);
  }
  if (wrong == nullptr) return;
  std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
  require(false, wrong);
}

}  // namespace qor::fuzz
