#include "runtime/tamb/EscapedText.h"

#include <fmt/format.h>

#include <iterator>

namespace tamb {

using qor::base::Utf8Character;

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
    const Utf8Character character = qor::base::firstCharacter(text);
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
