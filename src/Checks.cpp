#include "Checks.h"

#include <iostream>

#include "tamb/ILoggerWriter.h"
#include "tamb/LogContext.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::multiprocess_communication {

namespace {

/// False when there is no writer, or when it throws: the record must go elsewhere.
bool writeToLogger(tamb::LogLevel level, const std::string& message, ReportSite site) noexcept {
  try {
    const auto writer = tamb::GetCurrentLoggerWriter();
    if (writer == nullptr) return false;
    writer->Write(level, message, tamb::GetCurrentContextString(), site.source, tamb::ToString(site.line), "",
                  tamb::GetThreadId(), tamb::GetCurrentTimeString());
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace

void report(tamb::LogLevel level, const std::string& message, ReportSite site) noexcept {
  if (writeToLogger(level, message, site)) return;
  try {
    std::cerr << tamb::ToString(level) + ' ' + message + '\n' << std::flush;
  } catch (...) {  // There is nowhere left to report it, and the caller continues in any case.
  }
}

std::string Checks::decorate(const std::string& text) const {
  return formatter_ == nullptr ? text : formatter_->formatMessage(text);
}

void Checks::fail(const std::string& text, const std::string& suffix, int line) const {
  const std::string message = '[' + decorate(text) + suffix;
  report(tamb::LogLevel::Error, message, {source_, line});
  throw tamb::TAMBRuntimeError(message);
}

}  // namespace qor::multiprocess_communication
