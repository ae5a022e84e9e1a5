#pragma once

#include <cstddef>
#include <string_view>

namespace qor::base {

/// The first character of a text.
struct Utf8Character {
  /// In bytes: 1 to 4, and 1 for a byte that is not UTF-8.
  std::size_t length = 1;
  /// The code point; the byte itself if it is not UTF-8.
  char32_t codePoint = 0;
  bool isUtf8 = false;
};

/// The first character of a text, which must not be empty. Overlong forms, surrogates and code points beyond
/// U+10FFFF are not UTF-8. Any thread.
Utf8Character firstCharacter(std::string_view text);

/// Any thread.
bool isUtf8(std::string_view text);

/// The longest beginning of the text that has at most `longest` bytes and does not end within a character. If
/// the bytes are not UTF-8, it ends within the last four that fit. Any thread.
std::string_view cutUtf8(std::string_view text, std::size_t longest);

}  // namespace qor::base
