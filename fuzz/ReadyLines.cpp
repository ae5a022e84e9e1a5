#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "fuzz/ReadableLine.h"
#include "programs/service/EngineReport.h"
#include "runtime/console/OneLine.h"

namespace {

/// A reason that was cut ends in three dots.
constexpr std::size_t longestFailure = qor::console::longestReason + 3;

bool isReady(const std::string& line) {
  const auto event = nlohmann::json::parse(line, nullptr, false);
  return event.is_object() && event.contains("event") && event["event"] == "ready";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string line(reinterpret_cast<const char*>(data), size);
  const std::string failure = qor::programs::readyReportFrom(line).failure;
  qor::fuzz::require(failure.empty() == isReady(line), "only a ready line says that all is well");
  if (!failure.empty()) qor::fuzz::requireReadableLine(failure, longestFailure);
  if (const auto report = qor::programs::endReportFrom(line)) {
    qor::fuzz::requireReadableLine(report->outcome, longestFailure);
    qor::fuzz::requireReadableLine(report->reason, longestFailure);
  }
  return 0;
}
