#include <benchmark/benchmark.h>

#include <cstdlib>

#include "bench/FailuresOnly.h"
#include "bench/RatioReporter.h"

int main(int argumentCount, char** arguments) {
  qor::bench::logFailuresOnly();
  benchmark::Initialize(&argumentCount, arguments);
  if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments)) return EXIT_FAILURE;
  qor::bench::RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return EXIT_SUCCESS;
}
