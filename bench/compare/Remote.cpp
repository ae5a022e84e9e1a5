#include "bench/compare/Remote.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "RemoteEngineFrontEnd.h"
#include "bench/PrivateEndpoint.h"
#include "bench/compare/InParallel.h"
#include "bench/compare/Line.h"
#include "bench/compare/Peer.h"
#include "bench/compare/Stopwatch.h"
#include "runtime/processes/ChildProcess.h"
#include "runtime/tamb/EngineDescription.h"

namespace qor::bench {

namespace {

using multiprocess_communication::RemoteEngineFrontEnd;

constexpr std::chrono::seconds patience{20};
/// How long the idle host is observed.
constexpr std::chrono::seconds idleTime{5};

double residentKibibytes() {
  std::ifstream statm("/proc/self/statm");
  long size = 0;
  long resident = 0;
  statm >> size >> resident;
  return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1024;
}

double contextSwitches() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_nvcsw);
}

class Service {
 public:
  explicit Service(std::size_t engines)
      : process_(processes::siblingProgram("qor-engine-service"),
                 {"--endpoint", endpoint_.text(), "--end-with-parent", std::to_string(::getpid()),
                  "--maximum-engines", std::to_string(engines), "--quiet", "--engines",
                  processes::siblingProgram("../share/tamb/test-engines.d").string()},
                 "") {
    if (!process_.readLine(patience)) throw std::runtime_error("the submission service is not ready");
  }
  ~Service() { process_.end(patience); }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  std::string endpoint() const { return endpoint_.text(); }

 private:
  const PrivateEndpoint endpoint_;
  processes::ChildProcess process_;
};

}  // namespace

void runRemoteEngines(const std::string& countText) {
  const auto count = static_cast<std::size_t>(std::stoul(countText));
  const Line line(Peer::lineDescriptor, remoteEnginesPatience);
  const Service service(count);
  const auto config =
      tamb::CreateParametersCollectionInstance(RemoteEngineFrontEnd::GetParametersCollectionPrototype());
  config->SetUTF8String("QorServiceEndpoint", service.endpoint());
  std::vector<std::unique_ptr<RemoteEngineFrontEnd>> engines;
  std::vector<double> milliseconds;
  double residentWithOne = 0;
  for (std::size_t number = 0; number < count; ++number) {
    engines.push_back(std::make_unique<RemoteEngineFrontEnd>());
    engines.back()->SetInitConfig(config);
    const auto start = std::chrono::steady_clock::now();
    engines.back()->AddEngineDescription(std::make_shared<tamb::EngineDescription>(
        "compare", R"({"engine": "test"})", static_cast<std::uint32_t>(number)));
    milliseconds.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    if (number == 0) residentWithOne = residentKibibytes();
  }
  RemoteResult result;
  std::nth_element(milliseconds.begin(), milliseconds.begin() + static_cast<std::ptrdiff_t>(count / 2),
                   milliseconds.end());
  result.wiredMilliseconds = milliseconds[count / 2];
  if (count > 1) {
    result.residentKibibytes = (residentKibibytes() - residentWithOne) / static_cast<double>(count - 1);
  }
  const double switches = contextSwitches();
  Stopwatch time;
  time.start();
  std::this_thread::sleep_for(idleTime);
  time.stop();
  result.idleCorePercent = 100 * time.processorSeconds() / time.seconds();
  result.idleSwitchesPerSecond = (contextSwitches() - switches) / time.seconds();
  line.give(&result, sizeof result);
  destroyInParallel(engines);
}

}  // namespace qor::bench
