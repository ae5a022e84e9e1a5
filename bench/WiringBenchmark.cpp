#include <benchmark/benchmark.h>

#include <chrono>
#include <stdexcept>
#include <string>

#include "RemoteEngineFrontEnd.h"
#include "bench/PrivateEndpoint.h"
#include "runtime/processes/ChildProcess.h"
#include "runtime/processes/SocketFiles.h"
#include "runtime/tamb/EngineDescription.h"

namespace qor::bench {
namespace {

using multiprocess_communication::RemoteEngineFrontEnd;
using processes::ChildProcess;

constexpr const char* description = R"({"engine": "test"})";
constexpr std::chrono::seconds patience{20};

/// The registry of the test engine, which needs no media.
std::string testEngines() { return processes::siblingProgram("../share/tamb/test-engines.d").string(); }

void requireReady(ChildProcess& process) {
  const auto line = process.readLine(patience);
  if (!line || line->find("\"ready\"") == std::string::npos)
    throw std::runtime_error("a program is not ready");
}

/// One iteration is the time that a host waits: from the last set-up call of an engine until it is connected.
/// Another process than this one starts the engine process.
void wireOurs(benchmark::State& state) {
  const PrivateEndpoint endpoint;
  ChildProcess service(processes::siblingProgram("qor-engine-service"),
                       {"--endpoint", endpoint.text(), "--quiet", "--engines", testEngines()}, "");
  requireReady(service);
  const auto config =
      tamb::CreateParametersCollectionInstance(RemoteEngineFrontEnd::GetParametersCollectionPrototype());
  config->SetUTF8String("QorServiceEndpoint", endpoint.text());
  for ([[maybe_unused]] auto _ : state) {
    RemoteEngineFrontEnd engine;
    engine.SetInitConfig(config);
    const auto start = std::chrono::steady_clock::now();
    engine.AddEngineDescription(std::make_shared<tamb::EngineDescription>("benchmark", description, 1));
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  service.end(patience);
}

/// Only the start of the same process, until it reports that it is ready.
void wireBare(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) {
    const processes::PrivateDirectory directory;
    const auto endpoint = [&](const char* name) { return "ipc://" + (directory.path() / name).string(); };
    const auto start = std::chrono::steady_clock::now();
    ChildProcess process(processes::siblingProgram("tamb-engine"),
                         {"--workflow-manager-id", "benchmark", "--engine-id", "1", "--description", "-",
                          "--request", endpoint("request"), "--status", endpoint("status"), "--command",
                          endpoint("command"), "--notification", endpoint("notification"), "--directory",
                          directory.path().string(), "--engines", testEngines()},
                         description);
    requireReady(process);
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    process.end(patience);
  }
}

BENCHMARK(wireOurs)->Name("Wiring/ours")->Iterations(20)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(wireBare)->Name("Wiring/bare")->Iterations(20)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace qor::bench
