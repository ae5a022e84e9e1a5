#include "programs/host/HeldErrors.h"

#include <utility>
#include <vector>

#include "runtime/base/Mutex.h"
#include "runtime/tamb/CurrentLoggerWriter.h"
#include "tamb/LogContext.h"

namespace qor::programs {

namespace {

constexpr const char* terminationFailure = "Failed sending termination request to backend";

struct Record {
  tamb::LogLevel level;
  std::string message;
  std::string context;
  std::string source;
  std::string line;
  std::string function;
  std::string threadId;
  std::string time;
};

}  // namespace

class HeldErrors::Writer : public tamb::ILoggerWriter {
 public:
  explicit Writer(std::shared_ptr<tamb::ILoggerWriter> next) : next_(std::move(next)) {}

  void Write(tamb::LogLevel level, const std::string& message, const std::string& context,
             const std::string& source, const std::string& line, const std::string& function,
             const std::string& threadId, const std::string& time) override {
    if (level == tamb::LogLevel::Error && threadId == threadId_) {
      const base::Lock lock(mutex_);
      records_.push_back({level, message, context, source, line, function, threadId, time});
    } else if (next_) {
      next_->Write(level, message, context, source, line, function, threadId, time);
    }
  }

  void drop(const std::string& exceptionText) {
    const base::Lock lock(mutex_);
    std::erase_if(records_, [&](const Record& record) {
      return record.message == exceptionText || record.message.find(terminationFailure) != std::string::npos;
    });
  }

  void release() {
    tamb::SetCurrentLoggerWriter(next_);
    const base::Lock lock(mutex_);
    for (const Record& record : records_) {
      if (!next_) continue;
      next_->Write(record.level, record.message, record.context, record.source, record.line, record.function,
                   record.threadId, record.time);
    }
  }

 private:
  const std::shared_ptr<tamb::ILoggerWriter> next_;
  const std::string threadId_ = tamb::GetThreadId();
  base::Mutex mutex_;
  std::vector<Record> records_ QOR_GUARDED_BY(mutex_);
};

HeldErrors::HeldErrors() : writer_(std::make_shared<Writer>(tamb::GetCurrentLoggerWriter())) {
  tamb::SetCurrentLoggerWriter(writer_);
}

HeldErrors::~HeldErrors() { writer_->release(); }

void HeldErrors::dropWhatFollowsFrom(const std::string& exceptionText) { writer_->drop(exceptionText); }

}  // namespace qor::programs
