#include "programs/support/OneLine.h"

#include <algorithm>

namespace qor::programs {

namespace {

constexpr const char* more = "...";

/// All bytes of a character of UTF-8 but its first.
bool continuesCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

}  // namespace

std::string oneLine(std::string text, std::size_t longest) {
  std::replace_if(
      text.begin(), text.end(), [](char each) { return each == '\n' || each == '\r'; }, ' ');
  if (text.size() <= longest) return text;
  std::size_t end = longest;
  while (end > 0 && continuesCharacter(text[end])) --end;
  return text.erase(end) + more;
}

}  // namespace qor::programs
