#pragma once

#include <string>
#include <string_view>

#include "runtime/base/Utf8.h"

namespace tamb {

/// Whether a terminal interprets the character instead of displaying it: control characters up to U+001F and
/// from U+007F to U+009F, the line separators U+2028 and U+2029, and characters that change the text
/// direction.
bool IsControlCharacter(char32_t codePoint);

/// A text from outside in a form that is safe for terminals: one line of UTF-8 with control characters
/// escaped as in "
/// ", "\x1b" and "\u009b", and bytes that are not UTF-8 as in "\xe9". A backslash is not escaped: the result
/// is for reading, not for parsing. Any thread.
std::string EscapedText(std::string_view text);

/// Escapes one character as EscapedText does.
void AppendEscaped(std::string& text, const qor::base::Utf8Character& control);

}  // namespace tamb
