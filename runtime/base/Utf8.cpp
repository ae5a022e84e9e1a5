#include "runtime/base/Utf8.h"

namespace qor::base {

namespace {

/// The bytes that follow the first one of a character.
struct Continuation {
  std::size_t count = 0;
  unsigned char lowestSecond = 0x80;
  unsigned char highestSecond = 0xBF;
};

/// The bounds of the second byte exclude overlong forms, surrogates and code points beyond U+10FFFF. The
/// count is 0 for a byte that does not begin a character.
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

Utf8Character firstCharacter(std::string_view text) {
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

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const Utf8Character character = firstCharacter(text);
    if (!character.isUtf8) return false;
    text.remove_prefix(character.length);
  }
  return true;
}

std::string_view cutUtf8(std::string_view text, std::size_t longest) {
  if (text.size() <= longest) return text;
  // All bytes of a character except its first begin with the bits 10.
  const auto isWithin = [&](std::size_t i) { return (static_cast<unsigned char>(text[i]) & 0xC0U) == 0x80U; };
  std::size_t end = longest;
  while (end > 0 && longest - end < 3 && isWithin(end)) --end;
  return text.substr(0, end);
}

}  // namespace qor::base
