#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace qor::bench {

/// The console report, followed by one line for each pair NAME/ours and NAME/bare with the median times and
/// their ratio.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  RatioReporter();
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

 private:
  std::map<std::string, std::vector<double>> nanoseconds_;  ///< per iteration, by the benchmark's name
};

}  // namespace qor::bench
