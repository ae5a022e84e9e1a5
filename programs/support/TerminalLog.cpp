#include "programs/support/TerminalLog.h"

#include <memory>
#include <string>

#include "runtime/tamb/ConsoleLoggerWriter.h"
#include "runtime/tamb/CurrentLoggerWriter.h"

namespace qor::programs {

namespace {

class Filter : public tamb::ConsoleLoggerWriter {
 public:
  explicit Filter(Shown shown) : shown_(shown) {}
  void Write(tamb::LogLevel level, const std::string& message, const std::string& context,
             const std::string& source, const std::string& line, const std::string& function,
             const std::string& threadId, const std::string& time) override {
    if (!isShown(level)) return;
    ConsoleLoggerWriter::Write(level, message, context, source, line, function, threadId, time);
  }

 private:
  bool isShown(tamb::LogLevel level) const {
    switch (level) {
      case tamb::LogLevel::Warning:
      case tamb::LogLevel::Error:
        return true;
      case tamb::LogLevel::Info:
        return shown_ != Shown::Failures;
      case tamb::LogLevel::Debug:
        return shown_ == Shown::Everything;
    }
    return true;
  }

  const Shown shown_;
};

}  // namespace

void showLog(Shown shown) { tamb::SetCurrentLoggerWriter(std::make_shared<Filter>(shown)); }

}  // namespace qor::programs
