#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "bench/RatioReporter.h"
#include "runtime/tamb/ConsoleLoggerWriter.h"
#include "runtime/tamb/CurrentLoggerWriter.h"

namespace {

/// Keeps the records of ordinary life out of the report.
class FailuresOnly : public tamb::ConsoleLoggerWriter {
 public:
  void Write(tamb::LogLevel level, const std::string& message, const std::string& context,
             const std::string& source, const std::string& line, const std::string& function,
             const std::string& threadId, const std::string& time) override {
    if (level != tamb::LogLevel::Warning && level != tamb::LogLevel::Error) return;
    ConsoleLoggerWriter::Write(level, message, context, source, line, function, threadId, time);
  }
};

}  // namespace

int main(int argumentCount, char** arguments) {
  tamb::SetCurrentLoggerWriter(std::make_shared<FailuresOnly>());
  benchmark::Initialize(&argumentCount, arguments);
  if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments)) return EXIT_FAILURE;
  qor::bench::RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return EXIT_SUCCESS;
}
