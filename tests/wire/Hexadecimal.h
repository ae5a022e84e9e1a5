#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace qor::test {

/// The bytes given by hexadecimal digits; spaces between the digits are skipped. Throws std::invalid_argument
/// for any other character and for half a byte.
inline std::string fromHex(std::string_view digits) {
  constexpr std::string_view values = "0123456789abcdef";
  std::string bytes;
  bool isSecond = false;
  for (const char digit : digits) {
    if (digit == ' ') continue;
    const auto value =
        values.find(digit >= 'A' && digit <= 'F' ? static_cast<char>(digit - 'A' + 'a') : digit);
    if (value == std::string_view::npos) throw std::invalid_argument("no hexadecimal digit");
    if (isSecond) {
      bytes.back() = static_cast<char>(static_cast<unsigned char>(bytes.back()) | value);
    } else {
      bytes.push_back(static_cast<char>(value << 4U));
    }
    isSecond = !isSecond;
  }
  if (isSecond) throw std::invalid_argument("half a byte");
  return bytes;
}

/// Two digits per byte, without separators.
inline std::string toHex(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += digits[byte >> 4U];
    text += digits[byte & 0xfU];
  }
  return text;
}

}  // namespace qor::test
