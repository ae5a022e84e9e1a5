#pragma once

#include <memory>
#include <string>

#include "runtime/tamb/ConsoleLoggerWriter.h"
#include "runtime/tamb/CurrentLoggerWriter.h"

namespace qor::bench {

/// Keeps records of normal operation out of the report.
class FailuresOnly : public tamb::ConsoleLoggerWriter {
 public:
  void Write(tamb::LogLevel level, const std::string& message, const std::string& context,
             const std::string& source, const std::string& line, const std::string& function,
             const std::string& threadId, const std::string& time) override {
    if (level != tamb::LogLevel::Warning && level != tamb::LogLevel::Error) return;
    ConsoleLoggerWriter::Write(level, message, context, source, line, function, threadId, time);
  }
};

inline void logFailuresOnly() { tamb::SetCurrentLoggerWriter(std::make_shared<FailuresOnly>()); }

}  // namespace qor::bench
