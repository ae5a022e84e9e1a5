#include "bench/RatioReporter.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace qor::bench {

namespace {

constexpr std::string_view ours = "/ours/";
constexpr std::string_view bare = "/bare/";

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Whether a benchmark failed and therefore has no times. Google Benchmark 1.8 renamed the member.
template <class Run>
bool hasFailed(const Run& run) {
  if constexpr (requires { run.error_occurred; }) {
    return run.error_occurred;
  } else {
    return static_cast<bool>(run.skipped);
  }
}

}  // namespace

RatioReporter::RatioReporter()
    : ConsoleReporter(::isatty(STDOUT_FILENO) != 0 ? OO_ColorTabular : OO_Tabular) {}

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
  ConsoleReporter::ReportRuns(runs);
  for (const Run& run : runs) {
    // If repetitions are not reported, their median is.
    if (hasFailed(run) || (run.run_type != Run::RT_Iteration && run.aggregate_name != "median")) continue;
    nanoseconds_[run.run_name.function_name + '/' + run.run_name.args].push_back(run.GetAdjustedRealTime());
  }
}

void RatioReporter::Finalize() {
  ConsoleReporter::Finalize();
  std::printf("\n%-32s %12s %12s %14s %14s\n", "median of repetitions", "ours ns", "bare ns",
              "time ours/bare", "rate ours/bare");
  for (const auto& [name, times] : nanoseconds_) {
    const auto place = name.find(ours);
    if (place == std::string::npos) continue;
    std::string pair = name;
    const auto other = nanoseconds_.find(pair.replace(place, ours.size(), bare));
    if (other == nanoseconds_.end()) continue;
    const double mine = median(times);
    const double theirs = median(other->second);
    std::printf("%-32s %12.0f %12.0f %14.3f %14.3f\n", name.substr(0, name.find_last_not_of('/') + 1).c_str(),
                mine, theirs, mine / theirs, theirs / mine);
  }
}

}  // namespace qor::bench
