#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tamb {

/// The first character of a text.
struct Utf8Character {
  /// In bytes: 1 to 4, and 1 for a byte that is not UTF-8.
  std::size_t length = 1;
  /// The code point; that byte, when it is not UTF-8.
  char32_t codePoint = 0;
  bool isUtf8 = false;
};

/// The character that a text, which must not be empty, begins with. Overlong forms, surrogates and code
/// points beyond U+10FFFF are not UTF-8. Any thread.
Utf8Character FirstCharacter(std::string_view text);

/// Whether a terminal obeys the character instead of showing it: the control characters up to U+001F and from
/// U+007F to U+009F, the line separators U+2028 and U+2029, and the characters that turn the direction of
/// what follows them.
bool IsControlCharacter(char32_t codePoint);

/// A text from outside as a terminal can show it: one line of UTF-8 in which control characters are spelt as
/// in
/// "\n", "\x1b" and "\u009b", and bytes that are not UTF-8 as in "\xe9". A backslash stays as it is: the
/// result is for reading, not for reading back. Any thread.
std::string EscapedText(std::string_view text);

/// As EscapedText spells it.
void AppendEscaped(std::string& text, const Utf8Character& control);

}  // namespace tamb
