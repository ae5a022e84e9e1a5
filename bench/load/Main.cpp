#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench/load/Run.h"

namespace {

using qor::bench::LoadCase;
using qor::bench::LoadResult;

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/// Those whose name contains `wanted`.
std::vector<LoadCase> cases(std::size_t messages, const std::string& wanted) {
  std::vector<LoadCase> all;
  for (const auto channel : {qor::bench::Channel::Commands, qor::bench::Channel::Notifications}) {
    for (const bool withParameters : {false, true}) {
      for (const std::size_t messagesPerList : {1, 100}) {
        LoadCase load{
            .channel = channel, .withParameters = withParameters, .messagesPerList = messagesPerList};
        // The last credit comes with the last message.
        load.messages = std::max<std::size_t>(messages / load.window(), 1) * load.window();
        if (load.name().find(wanted) != std::string::npos) all.push_back(load);
      }
    }
  }
  return all;
}

/// The runs of one case with one library.
struct Series {
  std::vector<double> rates;  ///< million messages a second
  LoadResult last;
};

struct Pair {
  Series ours;
  Series bare;
  std::vector<double> ratios;
};

/// One run with each library, in any order. False when a message was lost, out of order or incomplete.
bool runPair(LoadCase load, Pair& pair, std::mt19937& random) {
  std::vector libraries{qor::bench::Library::Ours, qor::bench::Library::Bare};
  std::shuffle(libraries.begin(), libraries.end(), random);
  bool complete = true;
  for (const auto library : libraries) {
    load.library = library;
    Series& series = library == qor::bench::Library::Ours ? pair.ours : pair.bare;
    series.last = qor::bench::run(load);
    series.rates.push_back(static_cast<double>(load.messages) / series.last.seconds / 1e6);
    if (series.last.received == load.total() && series.last.wrong == 0) continue;
    std::fprintf(stderr, "%s: %zu of %zu messages came, %zu of them not as they should be\n",
                 load.name().c_str(), series.last.received, load.total(), series.last.wrong);
    complete = false;
  }
  pair.ratios.push_back(pair.ours.rates.back() / pair.bare.rates.back());
  return complete;
}

void print(const std::string& name, const Pair& pair) {
  const LoadResult& result = pair.ours.last;
  std::printf("%-44s %8.3f %8.3f %8.3f   %6ld %+5ld   %6ld %+5ld\n", name.c_str(), median(pair.ours.rates),
              median(pair.bare.rates), median(pair.ratios), result.before[0],
              result.after[0] - result.before[0], result.before[1], result.after[1] - result.before[1]);
}

int measure(std::size_t messages, std::size_t rounds, const std::string& wanted) {
  std::mt19937 random(std::random_device{}());
  auto loads = cases(messages, wanted);
  std::map<std::string, Pair> pairs;
  bool complete = true;
  for (std::size_t round = 0; round < rounds; ++round) {
    std::shuffle(loads.begin(), loads.end(), random);
    for (const LoadCase& load : loads) complete &= runPair(load, pairs[load.name()], random);
  }
  std::printf(
      "%zu messages a run between two processes, medians of %zu runs; resident memory of ours in KiB\n\n",
      messages, rounds);
  std::printf("%-44s %8s %8s %8s   %12s   %12s\n", "", "ours M/s", "bare M/s", "ours/bare", "sender",
              "receiver");
  for (const auto& [name, pair] : pairs) print(name, pair);
  return complete ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    if (argumentCount == 4 && std::string(arguments[1]) == qor::bench::engineArgument) {
      return qor::bench::beTheEngine(arguments[2], arguments[3]);
    }
    CLI::App app("Commands and notifications between two processes, beside bare libzmq and protobuf.");
    std::size_t messages = 1'000'000;
    std::size_t rounds = 3;
    app.add_option("--messages", messages, "How many messages each run measures")->capture_default_str();
    app.add_option("--rounds", rounds, "How often each load is run with each library")->capture_default_str();
    std::string wanted;
    app.add_option("--only", wanted, "Only loads with this in their name, say \"commands in lists of 1,\"");
    CLI11_PARSE(app, argumentCount, arguments);
    return measure(messages, rounds, wanted);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return EXIT_FAILURE;
  }
}
