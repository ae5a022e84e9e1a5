#include "qor/utils/MessageFormatter.h"

namespace qor::utils {

std::string IMessageFormatter::formatMessage(const std::string& text) const {
  return messageHeader() + ": " + text;
}

// The platform declares this signature.
// NOLINTNEXTLINE(modernize-pass-by-value)
MessageFormatter::MessageFormatter(const std::string& header) : header_(header) {}

std::string MessageFormatter::messageHeader() const { return header_; }

}  // namespace qor::utils
