#include "hosting/EngineProcess.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>

#include "TcpCommandProcessorBackEnd.h"
#include "TcpEngineBackEnd.h"
#include "TcpNotificationHubBackEnd.h"
#include "engines/LocalEngine.h"
#include "engines/sdk/IAbandonable.h"
#include "hosting/EditRates.h"
#include "hosting/EndingSignals.h"
#include "hosting/FailureReport.h"
#include "hosting/ServedEngine.h"
#include "qor/socket/Socket.h"
#include "qor/utils/Log.h"
#include "runtime/processes/Cores.h"
#include "runtime/processes/Pipe.h"
#include "runtime/tamb/EngineDescription.h"

namespace qor::hosting {

namespace {

using multiprocess_communication::TcpCommandProcessorBackEnd;
using multiprocess_communication::TcpEngineBackEnd;
using multiprocess_communication::TcpNotificationHubBackEnd;

constexpr unsigned int readyMilliseconds = 5'000;
/// For a run to end ahead of its process, which its supervisor gives 5 s.
constexpr unsigned int endMilliseconds = 3'000;
constexpr const char* hostHasGone =
    "the host has gone, or was silent for 10 s, and did not ask the run to finish: the run was abandoned and "
    "its "
    "output discarded";

/// A publisher that has no descriptor for whoever connects reports that to nobody.
bool mayOpenTwoMore() {
  const auto open = [] { return processes::Descriptor(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)); };
  const auto one = open();
  const auto two = open();
  return (one.isOpen() && two.isOpen()) || errno != EMFILE;
}

/// The sockets of the engine control channel are bound on its own threads: it is ready once both of them
/// answer.
void awaitEngineControl(const EngineOptions& options) {
  socket::Socket requester("EngineReadinessRequest", socket::ClosePolicy::Newest);
  requester.createAndConnect(socket::Protocol::Requester, options.requestEndpoint, readyMilliseconds);
  socket::Socket subscriber("EngineReadinessStatus", socket::ClosePolicy::Newest);
  subscriber.createAndConnect(socket::Protocol::Subscriber, options.statusEndpoint, 0);
  std::string errorText;
  if (subscriber.poll(readyMilliseconds, errorText) == 0) return;
  if (errorText.empty() && !mayOpenTwoMore()) errorText = std::generic_category().message(EMFILE);
  throw std::runtime_error("the engine publishes no status on " +
                           options.statusEndpoint.toString(socket::Protocol::Plain) +
                           (errorText.empty() ? "" : ": " + errorText));
}

/// They may have been taken from this process since it started, which is no reason not to run.
void useIfPossible(const processes::Cores& cores) {
  try {
    processes::useCores(cores);
  } catch (const std::exception& error) {
    utils::logWarning(std::string("the engine's run keeps to the core of its messaging: ") + error.what());
  }
}

void abandon(tamb::IEngineFrontEnd& engine, const std::string& reason) {
  if (auto* const abandonable = dynamic_cast<engines::IAbandonable*>(&engine)) abandonable->Abandon(reason);
}

/// For a process that is ended by a signal: its supervisor reports that.
void endRun(tamb::IEngineFrontEnd& engine) {
  try {
    abandon(engine, "");
    engine.RequestStop();
    engine.WaitForStop(endMilliseconds);
  } catch (const std::exception& error) {
    utils::logWarning(std::string("the engine's run does not end with its process: ") + error.what());
  }
}

}  // namespace

void serveEngine(const EngineOptions& options, const std::function<void(EngineEvent)>& onEvent,
                 const std::function<void(const std::string&)>& onRunFailure) {
  const auto local = engines::makeLocalEngine(
      tamb::EngineDescription(options.workflowManagerId, options.description, options.engineId),
      options.withTestEngine ? engines::OfferedEngines::WithTestEngine : engines::OfferedEngines::Shipped);
  // The channels' threads get the cores of this one.
  processes::Cores allCores;
  if (options.core) {
    allCores = processes::usableCores();
    processes::useCores({*options.core});
  }
  // Before there are threads of the channels, and as long as there is anything to put in order.
  const EndingSignals signals([engine = local.engine] { endRun(*engine); });
  // Commands arrive by the channel, notifications leave by it, and the engine is run by it: in the order in
  // which they have to be there, and in the opposite order they go.
  const auto failureReport = std::make_shared<FailureReport>(
      withEnginesEditRates(std::make_shared<TcpNotificationHubBackEnd>(
          options.workflowManagerId, options.engineId, options.notificationEndpoint)),
      options.workflowManagerId, options.engineId, onRunFailure);
  local.engine->SetNotificationHubBackEnd(failureReport);
  const TcpCommandProcessorBackEnd commands(withHostsEditRates(local.commandFrontEnd), local.commandBackEnd,
                                            options.commandEndpoint);
  const auto onEnginesEvent = [&](EngineEvent event) {
    // On the thread of the run, whatever that starts.
    if (options.core && event == EngineEvent::Running) useIfPossible(allCores);
    onEvent(event);
  };
  const auto served = std::make_shared<ServedEngine>(
      local.engine, onEnginesEvent, [&](const std::string& reason) { failureReport->report(reason); });
  TcpEngineBackEnd control(served, options.requestEndpoint, options.statusEndpoint);
  onEvent(EngineEvent::Made);
  awaitEngineControl(options);
  onEvent(EngineEvent::Ready);
  control.waitForFrontEndTermination();
  onEvent(EngineEvent::Leaving);
  // A result that nobody has asked for, or waits for, takes no earlier one's place.
  if (!served->stopWasRequested()) abandon(*local.engine, hostHasGone);
  local.engine->RequestStop();
}

}  // namespace qor::hosting
