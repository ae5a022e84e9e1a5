#include "engines/sdk/Quotation.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "runtime/base/Utf8.h"
#include "runtime/tamb/EscapedText.h"

namespace qor::engines {

namespace {

constexpr std::size_t longestQuotation = 60;

}  // namespace

std::string quoteText(std::string_view text) {
  if (text.size() <= longestQuotation) return fmt::format("{:?}", text);
  return fmt::format("{:?}...", base::cutUtf8(text, longestQuotation));
}

std::string quoteJson(const nlohmann::json& value) {
  auto text = value.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
  return text.size() <= longestQuotation ? text : text.substr(0, longestQuotation) + "...";
}

bool isOneLine(std::string_view text) {
  while (!text.empty()) {
    const auto character = base::firstCharacter(text);
    if (tamb::IsControlCharacter(character.codePoint)) return false;
    text.remove_prefix(character.length);
  }
  return true;
}

}  // namespace qor::engines
