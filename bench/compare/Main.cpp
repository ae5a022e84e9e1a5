#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/FailuresOnly.h"
#include "bench/compare/EngineProcess.h"
#include "bench/compare/HostProcess.h"
#include "bench/compare/Machine.h"
#include "bench/compare/Plan.h"
#include "bench/compare/Remote.h"
#include "bench/compare/Rounds.h"

namespace {

using nlohmann::json;
using qor::bench::Case;

/// The names used by --only and --list.
constexpr const char* remoteEngines = "remote engines";
struct Options {
  std::size_t rounds = 7;
  double scale = 1;
  std::vector<std::string> only;
  bool goOn = false;

  bool wants(const std::string& name) const {
    return std::all_of(only.begin(), only.end(),
                       [&](const std::string& part) { return name.find(part) != std::string::npos; });
  }
  std::string file;
};

/// All selected runs, without results.
json plannedRuns(const Options& options) {
  json runs = json::array();
  for (const Case& run : qor::bench::plan(options.scale)) {
    const std::string name = qor::bench::nameOf(run);
    if (options.wants(name)) runs.push_back({{"name", name}, {"case", run}, {"results", json::array()}});
  }
  return runs;
}

/// The selected numbers of remote engines, without results.
json plannedRemoteEngines(const Options& options) {
  json all = json::array();
  if (!options.wants(remoteEngines)) return all;
  for (const std::size_t engines : {1, 10, 100}) {
    all.push_back({{"engines", engines}, {"results", json::array()}});
  }
  return all;
}

/// Two hundred engines in one host need more descriptors than a shell usually allows, and libzmq aborts a
/// process that has none left. Child processes inherit the limit.
void allowDescriptors() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

/// A plan without its results.
json withoutResults(json plan) {
  for (json& part : plan) part.at("results").clear();
  return plan;
}

/// The earlier results, or an empty plan. Throws if they are of another machine, build or plan.
json begunReport(const Options& options) {
  json report{{"machine", qor::bench::machine()},
              {"rounds", 0},
              {"runs", plannedRuns(options)},
              {remoteEngines, plannedRemoteEngines(options)}};
  if (!options.goOn) return report;
  std::ifstream file(options.file);
  json begun = json::parse(file, nullptr, false);
  for (const auto& part : report.items()) {
    if (!begun.contains(part.key())) {
      throw std::runtime_error("cannot go on with \"" + options.file + "\": it holds no results");
    }
  }
  if (begun.at("machine") != report.at("machine") || withoutResults(begun.at("runs")) != report.at("runs") ||
      withoutResults(begun.at(remoteEngines)) != report.at(remoteEngines)) {
    throw std::runtime_error(
        "cannot go on with \"" + options.file +
        "\": it was measured on another machine, by another build, or with other --only or --scale");
  }
  return begun;
}

/// Whether all messages of all runs were correct.
bool isRight(const json& report) {
  for (const json& run : report.at("runs")) {
    for (const json& result : run.at("results")) {
      if (result.at("wrong") != 0) return false;
    }
  }
  return true;
}

/// Replaces the file atomically, because the program may be interrupted at any time.
void write(const json& report, const std::string& name) {
  const std::string unfinished = name + ".part";
  std::ofstream file(unfinished);
  file << report.dump(1) << '\n';
  file.close();
  if (!file || std::rename(unfinished.c_str(), name.c_str()) != 0) {
    throw std::runtime_error("cannot write \"" + name + "\"");
  }
}

int compare(const Options& options) {
  allowDescriptors();
  json report = begunReport(options);
  if (report["runs"].empty() && report[remoteEngines].empty()) {
    throw std::runtime_error("nothing has all that --only asks for in its name: see --list");
  }
  qor::bench::measureRemoteEngines(report[remoteEngines], options.rounds);
  write(report, options.file);
  for (std::size_t round = report["rounds"].get<std::size_t>() + 1; round <= options.rounds; ++round) {
    const std::string title = "round " + std::to_string(round) + " of " + std::to_string(options.rounds);
    qor::bench::measureRound(report["runs"], title);
    report["rounds"] = round;
    write(report, options.file);
  }
  std::fprintf(stderr, "\n");
  return isRight(report) ? EXIT_SUCCESS : EXIT_FAILURE;
}

/// Whether the argument is the role of a process that this program has started.
bool takeRole(const std::string& role, const std::string& task) {
  if (role == qor::bench::hostRole) {
    qor::bench::runHostProcess(task);
  } else if (role == qor::bench::engineRole) {
    qor::bench::runEngineProcess(task);
  } else if (role == qor::bench::remoteEnginesRole) {
    qor::bench::runRemoteEngines(task);
  } else {
    return false;
  }
  return true;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    qor::bench::logFailuresOnly();
    if (argumentCount == 3 && takeRole(arguments[1], arguments[2])) return EXIT_SUCCESS;
    CLI::App app("The channels beside bare libzmq, gRPC and the framework without a process boundary.");
    Options options;
    bool list = false;
    app.add_option("file", options.file, "Where the results go, as JSON");
    app.add_option("--rounds", options.rounds, "How often everything is run")->capture_default_str();
    app.add_option("--scale", options.scale, "How long each run is, beside its usual length")
        ->capture_default_str();
    app.add_option("--only", options.only, "Only what has this in its name, and every other that is given")
        ->take_all();
    app.add_flag("--go-on", options.goOn, "Add what is missing to the results in the file");
    app.add_flag("--list", list, "Print the names, and run nothing");
    CLI11_PARSE(app, argumentCount, arguments);
    if (list) {
      std::puts(remoteEngines);
      for (const Case& run : qor::bench::plan(options.scale)) std::puts(qor::bench::nameOf(run).c_str());
      return EXIT_SUCCESS;
    }
    if (options.file.empty()) throw std::runtime_error("where are the results to go? See --help");
    return compare(options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "compare: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
