#include "runtime/tamb/ConsoleLoggerWriter.h"

#include <fmt/format.h>

#include <iostream>
#include <iterator>
#include <mutex>
#include <string_view>

namespace tamb {

namespace {

/// One for all console writers, since several of them may share a stream. It needs no destruction, hence can
/// be locked as long as the process lives.
std::mutex outputMutex;

bool isControl(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte < 0x20 || byte == 0x7f;
}

/// The message as it stands in a line: without trailing line breaks, its further lines indented, its control
/// characters spelt out.
std::string readable(std::string_view message) {
  message = message.substr(0, message.find_last_not_of("\r\n") + 1);
  std::string text;
  text.reserve(message.size());
  for (std::size_t i = 0; i < message.size(); ++i) {
    const char character = message[i];
    if (character == '\n') {
      text += "\n    ";
    } else if (character == '\r' && i + 1 < message.size() && message[i + 1] == '\n') {
      continue;
    } else if (isControl(character) && character != '\t') {
      fmt::format_to(std::back_inserter(text), "\\x{:02x}", static_cast<unsigned char>(character));
    } else {
      text += character;
    }
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

  const std::lock_guard lock(outputMutex);
  stream_.write(record.data(), static_cast<std::streamsize>(record.size())).flush();
}

}  // namespace tamb
