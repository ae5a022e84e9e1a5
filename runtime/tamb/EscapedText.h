#pragma once

#include <string>
#include <string_view>

#include "runtime/base/Utf8.h"

namespace tamb {

/// Whether a terminal obeys the character instead of showing it: the control characters up to U+001F and from
/// U+007F to U+009F, the line separators U+2028 and U+2029, and the characters that turn the direction of
/// what follows them.
bool IsControlCharacter(char32_t codePoint);

/// A text from outside as a terminal can show it: one line of UTF-8 in which control characters are spelt as
/// in "\n", "\x1b" and "\u009b", and bytes that are not UTF-8 as in "\xe9". A backslash stays as it is: the
/// result is for reading, not for reading back. Any thread.
std::string EscapedText(std::string_view text);

/// As EscapedText spells it.
void AppendEscaped(std::string& text, const qor::base::Utf8Character& control);

}  // namespace tamb
