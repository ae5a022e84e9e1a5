#pragma once

#include <memory>
#include <string>
#include <utility>

#include "runtime/tamb/CurrentLoggerWriter.h"
#include "tests/support/Gate.h"

namespace qor::test {

/// During its lifetime, blocks the thread that logs a certain text until the gate is opened. Other records of
/// that time are dropped.
class HeldUpLog {
 public:
  explicit HeldUpLog(const std::string& text)
      : writer_(std::make_shared<Writer>(text)), previous_(tamb::SetCurrentLoggerWriter(writer_)) {}
  ~HeldUpLog() {
    gate().open();
    tamb::SetCurrentLoggerWriter(std::move(previous_));
  }
  HeldUpLog(const HeldUpLog&) = delete;
  HeldUpLog& operator=(const HeldUpLog&) = delete;

  Gate& gate() { return writer_->gate; }

 private:
  class Writer : public tamb::ILoggerWriter {
   public:
    explicit Writer(std::string text) : text_(std::move(text)) {}
    void Write(tamb::LogLevel /*level*/, const std::string& message, const std::string& /*context*/,
               const std::string& /*source*/, const std::string& /*line*/, const std::string& /*function*/,
               const std::string& /*threadId*/, const std::string& /*time*/) override {
      if (message.find(text_) != std::string::npos) gate.pass();
    }

    Gate gate;

   private:
    const std::string text_;
  };

  const std::shared_ptr<Writer> writer_;
  std::shared_ptr<tamb::ILoggerWriter> previous_;
};

}  // namespace qor::test
