#include "runtime/tamb/WriteLogRecord.h"

#include <iostream>

#include "tamb/ILoggerWriter.h"
#include "tamb/LogContext.h"

namespace tamb {

void WriteLogRecord(LogLevel level, const std::string& message) noexcept {
  try {
    try {
      if (const auto writer = GetCurrentLoggerWriter()) {
        writer->Write(level, message, GetCurrentContextString(), "", "", "", GetThreadId(),
                      GetCurrentTimeString());
        return;
      }
    } catch (...) {  // A writer may throw anything; the record then goes where it goes without a writer.
    }
    std::cerr << ToString(level) + ' ' + message + '\n' << std::flush;
  } catch (...) {  // There is nowhere left to report it to.
  }
}

}  // namespace tamb
