#include "engines/sdk/PercentEncoding.h"

#include <fmt/format.h>

#include <charconv>
#include <iterator>

namespace qor::engines {

std::string percentEncoded(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  for (const char character : bytes) {
    const auto byte = static_cast<unsigned char>(character);
    if (character == '%' || byte < 0x20 || byte >= 0x7F) {
      fmt::format_to(std::back_inserter(text), "%{:02X}", byte);
    } else {
      text += character;
    }
  }
  return text;
}

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string bytes;
  while (!text.empty()) {
    if (text.front() != '%') {
      bytes += text.front();
      text.remove_prefix(1);
      continue;
    }
    unsigned int byte = 0;
    const auto digits = text.substr(1, 2);
    const auto* const end = digits.data() + digits.size();
    if (digits.size() != 2 || std::from_chars(digits.data(), end, byte, 16).ptr != end) return std::nullopt;
    bytes += static_cast<char>(byte);
    text.remove_prefix(3);
  }
  return bytes;
}

}  // namespace qor::engines
