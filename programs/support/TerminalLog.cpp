#include "programs/support/TerminalLog.h"

#include <memory>
#include <mutex>
#include <sstream>
#include <string>

#include "programs/support/ErrorStream.h"
#include "runtime/tamb/ConsoleLoggerWriter.h"
#include "runtime/tamb/CurrentLoggerWriter.h"

namespace qor::programs {

namespace {

class TerminalWriter : public tamb::ILoggerWriter {
 public:
  explicit TerminalWriter(Shown shown) : shown_(shown) {}
  void Write(tamb::LogLevel level, const std::string& message, const std::string& context,
             const std::string& source, const std::string& line, const std::string& function,
             const std::string& threadId, const std::string& time) override {
    if (!isShown(level)) return;
    const std::lock_guard lock(mutex_);
    text_.str({});
    writer_.Write(level, message, context, source, line, function, threadId, time);
    std::string record = text_.str();
    if (!record.empty()) record.pop_back();  // its line end
    writeErrorLine(record);
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
  std::mutex mutex_;
  std::ostringstream text_;
  tamb::ConsoleLoggerWriter writer_{text_};
};

}  // namespace

void showLog(Shown shown) { tamb::SetCurrentLoggerWriter(std::make_shared<TerminalWriter>(shown)); }

}  // namespace qor::programs
