#include "programs/support/OneLine.h"

namespace qor::programs {

namespace {

constexpr const char* more = "...";

bool isControl(char byte) {
  return (static_cast<unsigned char>(byte) < 0x20 && byte != '\t') || byte == 0x7f;
}

/// How a character of UTF-8 with more than one byte goes on.
struct Continuation {
  std::size_t count = 0;
  unsigned char lowestSecond = 0x80;
  unsigned char highestSecond = 0xBF;
};

/// Neither longer than need be, nor half a surrogate, nor beyond the last character. No bytes for what begins
/// none.
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

/// How many bytes the character has that a text begins with; 0 when it is no UTF-8.
std::size_t lengthOfCharacter(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) < 0x80) return 1;
  const Continuation rest = continuationOf(byte(0));
  if (rest.count == 0 || text.size() <= rest.count) return 0;
  if (byte(1) < rest.lowestSecond || byte(1) > rest.highestSecond) return 0;
  for (std::size_t i = 2; i <= rest.count; ++i) {
    if (byte(i) < 0x80 || byte(i) > 0xBF) return 0;
  }
  return 1 + rest.count;
}

}  // namespace

std::string oneLine(std::string_view text, std::size_t longest) {
  std::string line;
  while (!text.empty()) {
    const std::size_t length = lengthOfCharacter(text);
    std::string_view shown = text.substr(0, length);
    if (length == 0) shown = "?";
    if (isControl(text.front())) shown = " ";
    if (line.size() + shown.size() > longest) return line + more;
    line += shown;
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return line;
}

}  // namespace qor::programs
