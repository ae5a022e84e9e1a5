#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace qor::engines {

/// What texts from outside are quoted as where they are refused: ASCII or UTF-8 in one line, cut behind
/// 60 bytes. Any thread.
std::string quoteText(std::string_view text);
std::string quoteJson(const nlohmann::json& value);

/// Whether a text can be printed as a part of a line: it has no control characters, no line separators and
/// none that turn its direction. Any thread.
bool isOneLine(std::string_view text);

}  // namespace qor::engines
