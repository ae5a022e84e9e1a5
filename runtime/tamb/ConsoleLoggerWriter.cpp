#include "runtime/tamb/ConsoleLoggerWriter.h"

#include <fmt/format.h>

#include <iostream>
#include <string_view>

#include "runtime/base/Mutex.h"
#include "runtime/tamb/EscapedText.h"

namespace tamb {

namespace {

/// Shared by all console writers, because several of them may share a stream. It has a trivial destructor, so
/// it can be locked until the process exits.
qor::base::Mutex outputMutex;

/// The message as it is printed: without trailing line breaks, with its further lines indented, and with its
/// other control characters and invalid UTF-8 escaped.
std::string readable(std::string_view message) {
  message = message.substr(0, message.find_last_not_of("\r\n") + 1);
  std::string text;
  text.reserve(message.size());
  while (!message.empty()) {
    const auto character = qor::base::firstCharacter(message);
    if (message.front() == '\n') {
      text += "\n    ";
    } else if (message.starts_with("\r\n")) {
      // The line end follows below.
    } else if (message.front() == '\t' || (character.isUtf8 && !IsControlCharacter(character.codePoint))) {
      text += message.substr(0, character.length);
    } else {
      AppendEscaped(text, character);
    }
    message.remove_prefix(character.length);
  }
  return text;
}

}  // namespace

ConsoleLoggerWriter::ConsoleLoggerWriter() : ConsoleLoggerWriter(std::cerr) {}

ConsoleLoggerWriter::ConsoleLoggerWriter(std::ostream& stream) : stream_(stream) {}

void ConsoleLoggerWriter::Write(LogLevel level, const std::string& message, const std::string& context,
                                const std::string& source, const std::string& line,
                                const std::string& /*function*/, const std::string& threadId,
                                const std::string& time) {
  std::string record = fmt::format("{:<7} {} ", ToString(level), time);
  if (!context.empty()) {
    record += '[' + readable(context) + "] ";
  }
  record += threadId + ' ' + readable(message);
  if (!source.empty()) {
    record += fmt::format(" ({}:{})", source, line);
  }
  record += '\n';

  const qor::base::Lock lock(outputMutex);
  stream_.write(record.data(), static_cast<std::streamsize>(record.size())).flush();
}

}  // namespace tamb
