#include "runtime/console/TerminalLog.h"

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

#include "runtime/base/Mutex.h"
#include "runtime/console/ErrorStream.h"
#include "runtime/console/LogLine.h"
#include "runtime/tamb/ConsoleLoggerWriter.h"
#include "runtime/tamb/CurrentLoggerWriter.h"
#include "runtime/tamb/RepeatCountingWriter.h"

namespace qor::console {

namespace {

class TerminalWriter : public tamb::ILoggerWriter {
 public:
  explicit TerminalWriter(Shown shown) : shown_(shown) {}
  void Write(tamb::LogLevel level, const std::string& message, const std::string& context,
             const std::string& source, const std::string& line, const std::string& function,
             const std::string& threadId, const std::string& time) override {
    if (!isShown(level)) return;
    const std::string origin = logOriginWith(context);
    const base::Lock lock(mutex_);
    // Writes each line as a record of its own, so that each names its origin.
    std::string_view rest(message);
    rest = rest.substr(0, rest.find_last_not_of("\r\n") + 1);
    do {
      const auto end = std::min(rest.find('\n'), rest.size());
      writeOne(level, std::string(rest.substr(0, end)), origin, source, line, function, threadId, time);
      rest.remove_prefix(std::min(end + 1, rest.size()));
    } while (!rest.empty());
  }

 private:
  void writeOne(tamb::LogLevel level, const std::string& message, const std::string& origin,
                const std::string& source, const std::string& line, const std::string& function,
                const std::string& threadId, const std::string& time) QOR_REQUIRES(mutex_) {
    text_.str({});
    writer_.Write(level, message, origin, source, line, function, threadId, time);
    std::string record = text_.str();
    if (!record.empty()) record.pop_back();  // its line end
    writeErrorLine(record);
  }

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
  base::Mutex mutex_;
  std::ostringstream text_ QOR_GUARDED_BY(mutex_);
  tamb::ConsoleLoggerWriter writer_ QOR_GUARDED_BY(mutex_){text_};
};

/// Never destroyed: it must outlive everything that logs.
std::shared_ptr<tamb::RepeatCountingWriter>& countingWriter() {
  static auto& writer = *new std::shared_ptr<tamb::RepeatCountingWriter>;
  return writer;
}

}  // namespace

void showLog(Shown shown, Repeats repeats) {
  std::shared_ptr<tamb::ILoggerWriter> writer = std::make_shared<TerminalWriter>(shown);
  if (repeats == Repeats::Counted) {
    countingWriter() = std::make_shared<tamb::RepeatCountingWriter>(std::move(writer));
    writer = countingWriter();
  }
  tamb::SetCurrentLoggerWriter(std::move(writer));
}

void flushLog() {
  if (countingWriter()) countingWriter()->flush();
}

}  // namespace qor::console
