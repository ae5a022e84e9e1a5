#include <sys/prctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "hosting/EngineRegistry.h"
#include "hosting/EnginesOption.h"
#include "programs/service/Service.h"
#include "qor/utils/Log.h"
#include "runtime/console/CommandLine.h"
#include "runtime/console/ErrorStream.h"
#include "runtime/console/Limits.h"
#include "runtime/console/LogLine.h"
#include "runtime/console/TerminalLog.h"
#include "runtime/processes/Cores.h"
#include "runtime/processes/SocketFiles.h"

namespace {

using qor::socket::SocketEndpoint;

constexpr const char* examples = R"(
Engines keep running when the service ends; each ends once its host has disconnected.

Exit codes:
  0  the service was ended by SIGTERM or Ctrl-C
  1  the service could not start
  2  wrong usage

Examples:
  qor-engine-service --endpoint ipc:///run/engines/service
  qor-engine-service --endpoint tcp://127.0.0.1:0 --maximum-engines 8
  qor-engine-service --endpoint ipc:///run/engines/service --engine-cores 2,3
)";

volatile std::sig_atomic_t endIsAskedFor = 0;

struct Arguments {
  std::string endpoint;
  std::filesystem::path engineProgram;
  std::size_t maximumEngines = 64;
  std::filesystem::path directory;
  qor::processes::Cores engineCores;
  pid_t parent = 0;
  std::vector<std::filesystem::path> engineFolders;
  bool quiet = false;
};

int run(const Arguments& arguments) {
  const auto endpoint = SocketEndpoint::FromString(arguments.endpoint).withReservedPort();
  qor::processes::requireUsable(arguments.engineCores, "--engine-cores");
  qor::programs::EngineLauncher launcher({.program = arguments.engineProgram.empty()
                                                         ? qor::processes::siblingProgram("tamb-engine")
                                                         : arguments.engineProgram,
                                          .maximumEngines = arguments.maximumEngines,
                                          .cores = arguments.engineCores,
                                          .engineFolders = arguments.engineFolders,
                                          .reportsFailedJobs = arguments.parent == 0});
  // Removes the socket file after the service, also when that throws.
  const struct Files {
    ~Files() { qor::processes::removeSocketFiles({endpoint}, directory, qor::processes::BoundBy::Anybody); }
    const SocketEndpoint& endpoint;
    const std::filesystem::path& directory;
  } files{endpoint, arguments.directory};
  qor::programs::Service service(endpoint, launcher);
  // Each engine's process reads the registry again, so problems can be repaired while the service runs. A
  // host reports the problems of its private service itself.
  if (arguments.parent == 0) {
    const qor::hosting::EngineRegistry registry(qor::hosting::registryFolders(arguments.engineFolders));
    for (const auto& problem : registry.problems())
      qor::utils::logWarning("Engine not registered: " + problem);
  }
  const nlohmann::json ready{
      {"event", "ready"}, {"pid", ::getpid()}, {"endpoint", endpoint.toString(qor::socket::Protocol::Plain)}};
  std::cout << ready << std::endl;
  service.serve([] { return endIsAskedFor != 0; });
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argumentCount, char** values) {
  CLI::App app("Starts engines for hosts that submit them.", "qor-engine-service");
  app.footer(examples);
  Arguments arguments;
  app.add_option("--endpoint", arguments.endpoint, "Endpoint to receive submissions on, such as ipc://PATH")
      ->required();
  app.add_option("--engine-program", arguments.engineProgram,
                 "Program that runs an engine; by default tamb-engine in this program's folder");
  app.add_option("--maximum-engines", arguments.maximumEngines, "Maximum number of engines at a time")
      ->capture_default_str();
  app.add_option("--engine-cores", arguments.engineCores,
                 "Cores for the engines' messaging threads, such as 2,3; each engine uses one of them")
      ->delimiter(',');
  app.add_option("--directory", arguments.directory,
                 "Directory of the socket, removed at the end if it is empty");
  app.add_option("--end-with-parent", arguments.parent,
                 "Process id of the parent, which reports failed jobs; the service ends with it");
  qor::hosting::addEnginesOption(app, arguments.engineFolders);
  app.add_flag("--quiet", arguments.quiet, "Log warnings and errors only");
  if (const auto exitCode = qor::console::parseCommandLine(app, argumentCount, values)) return *exitCode;
  using qor::console::Shown;
  qor::console::setLogOrigin("qor-engine-service " + std::to_string(::getpid()));
  qor::console::showLog(arguments.quiet ? Shown::Failures : Shown::Events);
  // Makes this process inherit engines whose supervisors are killed.
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  for (const int signal : {SIGTERM, SIGINT}) std::signal(signal, [](int) { endIsAskedFor = 1; });
  if (arguments.parent != 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    // The parent may have exited before the call above.
    if (::getppid() != arguments.parent) endIsAskedFor = 1;
  }
  try {
    for (auto& folder : arguments.engineFolders) folder = std::filesystem::absolute(folder);
    return run(arguments);
  } catch (const std::exception& error) {
    qor::console::writeErrorLine("qor-engine-service: " + qor::console::withLimit(error.what()));
    return EXIT_FAILURE;
  }
}
