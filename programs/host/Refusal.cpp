#include "programs/host/Refusal.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

namespace qor::programs {

namespace {

constexpr std::string_view replyLead = "Unexpected reply from service: ";
constexpr std::string_view refusalField = "refusal:";
/// How a failed check's text may end.
constexpr std::array<std::string_view, 4> frameEnds{
    "] [ Condition is not true ]", "] [ Condition is not false ]", "] [ Pointer is null ]", "]"};

std::string_view withoutFrame(std::string_view text) {
  const auto ends = [&](std::string_view end) { return text.ends_with(end); };
  const auto* const end = std::ranges::find_if(frameEnds, ends);
  if (!text.starts_with('[') || end == frameEnds.end()) return text;
  text.remove_prefix(1);
  text.remove_suffix(end->size());
  return text;
}

bool isDigitOf(char character, int base) {
  if (base == 8) return character >= '0' && character <= '7';
  return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f') ||
         (character >= 'A' && character <= 'F');
}

int valueOf(char digit) {
  if (digit <= '9') return digit - '0';
  return (digit | 0x20) - 'a' + 10;
}

/// Takes up to `most` digits from the text's beginning.
char takeNumber(std::string_view& text, int base, std::size_t most) {
  int value = 0;
  for (std::size_t count = 0; count < most && !text.empty() && isDigitOf(text.front(), base); ++count) {
    value = value * base + valueOf(text.front());
    text.remove_prefix(1);
  }
  return static_cast<char>(value);
}

/// Takes what follows a backslash.
char takeEscaped(std::string_view& text) {
  if (isDigitOf(text.front(), 8)) return takeNumber(text, 8, 3);
  const char character = text.front();
  text.remove_prefix(1);
  switch (character) {
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    case 'x':
    case 'X':
      return takeNumber(text, 16, 2);
    default:
      return character;
  }
}

/// Takes a string, whose opening quotation mark the text begins with.
std::string takeString(std::string_view& text) {
  std::string value;
  text.remove_prefix(1);
  while (!text.empty() && text.front() != '"') {
    const char character = text.front();
    text.remove_prefix(1);
    value += character == '\\' && !text.empty() ? takeEscaped(text) : character;
  }
  if (!text.empty()) text.remove_prefix(1);
  return value;
}

void skipBlanks(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \n"), text.size()));
}

/// None when the reply is no refusal.
std::optional<std::string> refusalIn(std::string_view reply) {
  while (!reply.empty()) {
    skipBlanks(reply);
    const bool isRefusal = reply.starts_with(refusalField);
    if (isRefusal) {
      reply.remove_prefix(refusalField.size());
      skipBlanks(reply);
    }
    if (reply.starts_with('"')) {
      std::string value = takeString(reply);
      if (isRefusal) return value;
    } else {
      reply.remove_prefix(std::min(reply.find_first_of(" \n\"", 1), reply.size()));
    }
  }
  return std::nullopt;
}

}  // namespace

std::string reasonIn(std::string_view text) {
  const std::string_view reason = withoutFrame(text);
  const auto lead = reason.find(replyLead);
  if (lead != std::string_view::npos) {
    if (auto refusal = refusalIn(reason.substr(lead + replyLead.size()))) return *std::move(refusal);
  }
  return std::string(reason);
}

}  // namespace qor::programs
