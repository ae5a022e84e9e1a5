#include <fmt/format.h>
#include <google/protobuf/stubs/common.h>
#include <grpcpp/grpcpp.h>
#include <link.h>
#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <zmq.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/FailuresOnly.h"
#include "bench/compare/Plan.h"
#include "bench/compare/Remote.h"
#include "bench/compare/Run.h"
#include "runtime/processes/ChildProcess.h"

namespace {

using nlohmann::json;
using qor::bench::Case;

constexpr const char* hostArgument = "--be-the-host";
constexpr const char* remoteArgument = "--have-remote-engines";
/// As --only and --list name them.
constexpr const char* remoteEngines = "remote engines";
/// What one run takes at most, several times over.
constexpr std::chrono::minutes patience{5};

/// What this program prints when it is started once more: each run has fresh processes.
json askAnother(const char* argument, const std::string& value) {
  qor::processes::ChildProcess process("/proc/self/exe", {argument, value}, "");
  const auto line = process.readLine(patience);
  const auto status = process.waitForEnd(patience);
  if (!line || !status || *status != 0) {
    process.end(std::chrono::seconds(1));
    throw std::runtime_error(std::string(argument) + ' ' + value + " has failed: " +
                             (status ? qor::processes::describeStatus(*status) : "it does not end"));
  }
  return json::parse(*line);
}

std::string firstAfter(const char* path, const std::string& label) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(label)) return line.substr(line.find(':') + 2);
  }
  return "unknown";
}

/// Tells builds apart: of this program and of the libraries that were built with it, what they contain.
std::string build() {
  std::size_t hash = 0;
  const auto add = [](dl_phdr_info* loaded, std::size_t, void* sum) {
    const std::string name = *loaded->dlpi_name == '\0' ? "/proc/self/exe" : loaded->dlpi_name;
    if (name.starts_with("/usr/") || name.starts_with("/lib")) return 0;
    std::ifstream file(name, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    *static_cast<std::size_t*>(sum) ^= std::hash<std::string>{}(content);
    return 0;
  };
  ::dl_iterate_phdr(add, &hash);
  return fmt::format("{:016x}", hash);
}

json machine() {
  utsname system{};
  ::uname(&system);
  int major = 0;
  int minor = 0;
  int patch = 0;
  ::zmq_version(&major, &minor, &patch);
  return {{"processor", firstAfter("/proc/cpuinfo", "model name")},
          {"cores", ::get_nprocs()},
          {"system", std::string(system.sysname) + ' ' + system.release},
          {"compiler", "GCC " __VERSION__},
          {"build", build()},
          {"libzmq", std::to_string(major) + '.' + std::to_string(minor) + '.' + std::to_string(patch)},
          {"protobuf", google::protobuf::internal::VersionString(GOOGLE_PROTOBUF_VERSION)},
          {"gRPC", grpc::Version()}};
}

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

/// All that is wanted, without a result.
json plannedRuns(const Options& options) {
  json runs = json::array();
  for (const Case& run : qor::bench::plan(options.scale)) {
    const std::string name = qor::bench::nameOf(run);
    if (options.wants(name)) runs.push_back({{"name", name}, {"case", run}, {"results", json::array()}});
  }
  return runs;
}

/// The runs in random order, but for those that do the same work, which follow each other in random order: a
/// machine that is shared is twice as fast in one minute as in another, and that has to meet everybody alike.
std::vector<json*> shuffled(json& runs) {
  static std::mt19937 random(std::random_device{}());
  std::map<std::string, std::vector<json*>> works;
  for (json& run : runs) {
    json work = run.at("case");
    work.erase("library");
    works[work.dump()].push_back(&run);
  }
  std::vector<std::vector<json*>> order;
  for (const auto& [work, itsRuns] : works) order.push_back(itsRuns);
  std::shuffle(order.begin(), order.end(), random);
  std::vector<json*> all;
  for (auto& itsRuns : order) {
    std::shuffle(itsRuns.begin(), itsRuns.end(), random);
    all.insert(all.end(), itsRuns.begin(), itsRuns.end());
  }
  return all;
}

/// One more result for each of the runs.
void measureRound(json& runs, const std::string& round) {
  const std::vector<json*> order = shuffled(runs);
  std::size_t done = 0;
  for (json* run : order) {
    const auto result = askAnother(hostArgument, run->at("case").dump());
    if (result.at("wrong") != 0) {
      std::fprintf(stderr, "%s: %s messages are wrong\n", run->at("name").get<std::string>().c_str(),
                   result.at("wrong").dump().c_str());
    }
    run->at("results").push_back(result);
    std::fprintf(stderr, "\r%s: %zu of %zu runs ", round.c_str(), ++done, order.size());
  }
}

/// As many remote engines as are measured, without a result.
json plannedRemoteEngines(const Options& options) {
  json all = json::array();
  if (!options.wants(remoteEngines)) return all;
  for (const std::size_t engines : {1, 10, 100}) {
    all.push_back({{"engines", engines}, {"results", json::array()}});
  }
  return all;
}

/// Three results are enough, since they hardly differ.
void measureRemoteEngines(json& all, std::size_t rounds) {
  rounds = std::min<std::size_t>(rounds, 3);
  for (json& some : all) {
    const auto engines = some.at("engines").dump();
    for (std::size_t round = some.at("results").size() + 1; round <= rounds; ++round) {
      std::fprintf(stderr, "\r%s remote engines: round %zu of %zu ", engines.c_str(), round, rounds);
      some.at("results").push_back(askAnother(remoteArgument, engines));
    }
  }
  std::fprintf(stderr, "\n");
}

/// Two hundred engines in one host hold more descriptors than a shell usually allows, and libzmq ends a
/// process that finds none. Those that are started inherit it.
void allowDescriptors() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

/// A plan whose results are left out.
json withoutResults(json plan) {
  for (json& part : plan) part.at("results").clear();
  return plan;
}

/// What has been measured so far, or nothing yet. Throws when that was another machine or build, or something
/// else.
json begunReport(const Options& options) {
  json report{{"machine", machine()},
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

/// Whether no message of any run was wrong.
bool isRight(const json& report) {
  for (const json& run : report.at("runs")) {
    for (const json& result : run.at("results")) {
      if (result.at("wrong") != 0) return false;
    }
  }
  return true;
}

/// Whole or not at all: the program may be interrupted at any time.
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
  measureRemoteEngines(report[remoteEngines], options.rounds);
  write(report, options.file);
  for (std::size_t round = report["rounds"].get<std::size_t>() + 1; round <= options.rounds; ++round) {
    const std::string title = "round " + std::to_string(round) + " of " + std::to_string(options.rounds);
    measureRound(report["runs"], title);
    report["rounds"] = round;
    write(report, options.file);
  }
  std::fprintf(stderr, "\n");
  return isRight(report) ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    qor::bench::logFailuresOnly();
    if (argumentCount == 3) {
      const std::string argument = arguments[1];
      const std::string value = arguments[2];
      if (argument == qor::bench::engineArgument) {
        qor::bench::beTheEngine(value);
        return EXIT_SUCCESS;
      }
      if (argument == hostArgument) {
        std::cout << json(qor::bench::runCase(json::parse(value).get<Case>())).dump() << '\n';
        return EXIT_SUCCESS;
      }
      if (argument == remoteArgument) {
        std::cout << json(qor::bench::haveRemoteEngines(std::stoul(value))).dump() << '\n';
        return EXIT_SUCCESS;
      }
    }
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
