#include "EngineReply.h"

#include <cstddef>

namespace qor::multiprocess_communication {

namespace {

/// The bytes of one character of UTF-8 but its first begin with the bits 10.
bool beginsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; }

/// The text as far as it fits into so many bytes, which are more than a character has.
std::string cut(const std::string& text, std::size_t longest) {
  if (text.size() <= longest) return text;
  // Between two characters, none of which has more than four bytes. Bytes that are not UTF-8 are cut where
  // there are too many of them.
  for (std::size_t end = longest; end + 4 > longest; --end) {
    if (beginsCharacter(text[end])) return text.substr(0, end);
  }
  return text.substr(0, longest);
}

}  // namespace

void setErrorText(proto::EngineBackEndReply& reply, const std::string& text) {
  reply.set_errorstring("");
  // The length of an empty text is one byte of the encoding already, and that of one that has to be cut two.
  const std::size_t longest = engineReplySizeBound - reply.ByteSizeLong() - 1;
  reply.set_errorstring(cut(text, longest));
}

}  // namespace qor::multiprocess_communication
