#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qor::engines {

/// How a description holds the name of a file whose bytes are not UTF-8, which no JSON text can: as the
/// object
/// {"percentEncoded": "/media/caf%E9.mov"}. The member's name.
inline constexpr const char* percentEncodedKey = "percentEncoded";

/// ASCII: each "%", each control character and each byte beyond ASCII as in "%E9". Reversible. Any thread.
std::string percentEncoded(std::string_view bytes);

/// The bytes; none when a "%" is not followed by two hexadecimal digits. Any thread.
std::optional<std::string> percentDecoded(std::string_view text);

}  // namespace qor::engines
