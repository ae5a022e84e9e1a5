#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qor::engines {

/// The member that names a file in a description if the bytes of its name are not UTF-8, which JSON text
/// cannot contain, as in {"percentEncoded": "/media/caf%E9.mov"}.
inline constexpr const char* percentEncodedKey = "percentEncoded";

/// ASCII: each "%", control character and non-ASCII byte is encoded, as in "%E9". Reversible. Any thread.
std::string percentEncoded(std::string_view bytes);

/// The bytes; empty if a "%" is not followed by two hexadecimal digits. Any thread.
std::optional<std::string> percentDecoded(std::string_view text);

}  // namespace qor::engines
