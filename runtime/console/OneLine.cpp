#include "runtime/console/OneLine.h"

#include "runtime/base/Utf8.h"
#include "runtime/tamb/EscapedText.h"

namespace qor::console {

namespace {

constexpr const char* more = "...";

}  // namespace

std::string oneLine(std::string_view text, std::size_t longest) {
  std::string line;
  // No character becomes longer, so the loop can stop early.
  while (!text.empty() && line.size() <= longest) {
    const auto character = base::firstCharacter(text);
    std::string_view shown = text.substr(0, character.length);
    if (!character.isUtf8) shown = "?";
    if (character.isUtf8 && character.codePoint != '\t' && tamb::IsControlCharacter(character.codePoint))
      shown = " ";
    line += shown;
    text.remove_prefix(character.length);
  }
  return line.size() <= longest ? line : std::string(base::cutUtf8(line, longest)) + more;
}

}  // namespace qor::console
