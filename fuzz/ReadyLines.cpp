#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "fuzz/ReadableLine.h"
#include "hosting/EngineReport.h"
#include "runtime/console/OneLine.h"

namespace {

using qor::hosting::reportFrom;

/// A reason that was cut ends in three dots.
constexpr std::size_t longestReason = qor::console::longestReason + 3;

bool isReady(const std::string& line) {
  const auto event = nlohmann::json::parse(line, nullptr, false);
  return event.is_object() && event.contains("event") && event["event"] == "ready";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string line(reinterpret_cast<const char*>(data), size);
  const auto report = reportFrom(line);
  const bool isReadyReport = report && report->event == qor::hosting::EngineEvent::Ready;
  qor::fuzz::require(isReadyReport == isReady(line), "only a ready line reports that the engine is ready");
  if (!report) return 0;
  if (!report->reason.empty()) qor::fuzz::requireReadableLine(report->reason, longestReason);
  // A forwarded report has the same content.
  const auto again = reportFrom(reportLine(*report));
  qor::fuzz::require(again && again->event == report->event && again->engineProcess == report->engineProcess,
                     "a report is read back");
  qor::fuzz::require(again->end.has_value() == report->end.has_value() &&
                         (!report->end || again->end->kind == report->end->kind),
                     "a run's end is read back");
  return 0;
}
