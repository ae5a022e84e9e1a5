#pragma once

#include <iosfwd>

#include "tamb/ILoggerWriter.h"

namespace tamb {

/// Writes each record as one line for people:
///
///   Warning 2026-03-01T12:34:56.789012Z [mixer (engine 7)] 4711 disk almost full (src/Disk:42)
///
/// with level, time, the context in brackets if there is one, thread, message, and the source with its line
/// in parentheses if there is one. Further lines of a message are indented, so that each line that starts
/// with a level starts a record. Control characters and bytes that are not UTF-8 are escaped, as in \x1b and
/// \u009b, so that text from a peer cannot control the terminal. Any thread; records of all console writers
/// of the process are never interleaved.
class ConsoleLoggerWriter : public ILoggerWriter {
 public:
  /// Writes to the standard error stream.
  ConsoleLoggerWriter();
  /// Writes to `stream`, which has to outlive the writer. Only console writers may write to it.
  explicit ConsoleLoggerWriter(std::ostream& stream);

  void Write(LogLevel level, const std::string& message, const std::string& context,
             const std::string& source, const std::string& line, const std::string& function,
             const std::string& threadId, const std::string& time) override;

 private:
  std::ostream& stream_;
};

}  // namespace tamb
