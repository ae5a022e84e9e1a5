#include "runtime/tamb/EscapedText.h"

#include <fmt/format.h>

#include <iterator>

namespace tamb {

namespace {

/// How a character of several bytes goes on after its first one.
struct Continuation {
  std::size_t count = 0;
  unsigned char lowestSecond = 0x80;
  unsigned char highestSecond = 0xBF;
};

/// The bounds of the second byte leave out overlong forms, surrogates and what lies beyond U+10FFFF. A count
/// of 0 for a byte that begins no character.
Continuation continuationOf(unsigned char first) {
  if (first >= 0xC2 && first <= 0xDF) return {.count = 1};
  if (first == 0xE0) return {.count = 2, .lowestSecond = 0xA0};
  if (first == 0xED) return {.count = 2, .highestSecond = 0x9F};
  if (first >= 0xE1 && first <= 0xEF) return {.count = 2};
  if (first == 0xF0) return {.count = 3, .lowestSecond = 0x90};
  if (first == 0xF4) return {.count = 3, .highestSecond = 0x8F};
  if (first >= 0xF1 && first <= 0xF3) return {.count = 3};
  return {};
}

}  // namespace

Utf8Character FirstCharacter(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) < 0x80) return {.length = 1, .codePoint = byte(0), .isUtf8 = true};
  const Utf8Character none{.length = 1, .codePoint = byte(0), .isUtf8 = false};
  const Continuation rest = continuationOf(byte(0));
  if (rest.count == 0 || text.size() <= rest.count) return none;
  if (byte(1) < rest.lowestSecond || byte(1) > rest.highestSecond) return none;
  char32_t codePoint = byte(0) & (0x3FU >> rest.count);
  for (std::size_t i = 1; i <= rest.count; ++i) {
    if (byte(i) < 0x80 || byte(i) > 0xBF) return none;
    codePoint = (codePoint << 6U) | (byte(i) & 0x3FU);
  }
  return {.length = 1 + rest.count, .codePoint = codePoint, .isUtf8 = true};
}

bool IsControlCharacter(char32_t codePoint) {
  const auto isIn = [codePoint](char32_t first, char32_t last) {
    return codePoint >= first && codePoint <= last;
  };
  return codePoint < 0x20 || isIn(0x7F, 0x9F) || codePoint == 0x061C || isIn(0x200E, 0x200F) ||
         isIn(0x2028, 0x202E) || isIn(0x2066, 0x2069);
}

void AppendEscaped(std::string& text, const Utf8Character& control) {
  const auto code = static_cast<unsigned int>(control.codePoint);
  if (code == '\n') {
    text += "\\n";
  } else if (code == '\r') {
    text += "\\r";
  } else if (code == '\t') {
    text += "\\t";
  } else if (control.isUtf8 && code >= 0x80) {
    fmt::format_to(std::back_inserter(text), "\\u{:04x}", code);
  } else {
    fmt::format_to(std::back_inserter(text), "\\x{:02x}", code);
  }
}

std::string EscapedText(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  while (!text.empty()) {
    const Utf8Character character = FirstCharacter(text);
    if (!character.isUtf8 || IsControlCharacter(character.codePoint)) {
      AppendEscaped(escaped, character);
    } else {
      escaped += text.substr(0, character.length);
    }
    text.remove_prefix(character.length);
  }
  return escaped;
}

}  // namespace tamb
