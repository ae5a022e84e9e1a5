#include "runtime/console/OneLine.h"

#include "runtime/tamb/EscapedText.h"

namespace qor::console {

namespace {

constexpr const char* more = "...";

}  // namespace

std::string oneLine(std::string_view text, std::size_t longest) {
  std::string line;
  while (!text.empty()) {
    const auto character = tamb::FirstCharacter(text);
    std::string_view shown = text.substr(0, character.length);
    if (!character.isUtf8) shown = "?";
    if (character.isUtf8 && character.codePoint != '\t' && tamb::IsControlCharacter(character.codePoint))
      shown = " ";
    if (line.size() + shown.size() > longest) return line + more;
    line += shown;
    text.remove_prefix(character.length);
  }
  return line;
}

}  // namespace qor::console
