#include "hosting/EngineProcess.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "TcpCommandProcessorBackEnd.h"
#include "TcpEngineBackEnd.h"
#include "TcpNotificationHubBackEnd.h"
#include "engines/sdk/LocalEngine.h"
#include "hosting/EditRates.h"
#include "hosting/EndingSignals.h"
#include "hosting/RunNotifications.h"
#include "hosting/ServedEngine.h"
#include "hosting/TimeLimits.h"
#include "qor/socket/Socket.h"
#include "qor/utils/Log.h"
#include "runtime/base/FileDescriptor.h"
#include "runtime/base/Mutex.h"
#include "runtime/processes/Cores.h"
#include "runtime/processes/Pipe.h"
#include "runtime/tamb/CurrentException.h"
#include "runtime/tamb/EngineDescription.h"

namespace qor::hosting {

namespace {

using multiprocess_communication::TcpCommandProcessorBackEnd;
using multiprocess_communication::TcpEngineBackEnd;
using multiprocess_communication::TcpNotificationHubBackEnd;

constexpr auto readyMilliseconds =
    static_cast<unsigned int>(std::chrono::milliseconds(socketsReadyWithin).count());
constexpr auto endMilliseconds = static_cast<unsigned int>(std::chrono::milliseconds(runEndsWithin).count());
constexpr const char* hostHasLeft =
    "the host has disconnected, or was silent for 10 s, without stopping the run: the run was "
    "abandoned and its output discarded";

/// A publisher that has no descriptor for whoever connects reports that to nobody.
bool mayOpenTwoMore() {
  const auto open = [] { return base::FileDescriptor(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)); };
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
    utils::logWarning(std::string("The engine's run stays on the core of its messaging: ") + error.what());
  }
}

/// For a process that is ended by a signal: its supervisor reports that.
void endRun(tamb::IEngineFrontEnd& engine) {
  try {
    abandon(engine, "");
    engine.RequestStop();
    engine.WaitForStop(endMilliseconds);
  } catch (const std::exception& error) {
    utils::logWarning(std::string("Cannot stop the engine's run before its process exits: ") + error.what());
  }
}

/// Lets a signal that ends the process end the run first, once there is an engine. To be made ahead of all
/// other threads, also those that an engine or its library starts: whichever of them had the signals
/// unblocked would be given them, and the process end at once. Any thread.
class RunEnding {
 public:
  /// Whether the process is ending by a signal.
  const std::atomic<bool>& hasBegun() const { return hasBegun_; }
  /// The engine whose run is to be ended; none, when empty.
  void setEngine(std::shared_ptr<tamb::IEngineFrontEnd> engine) {
    const base::Lock lock(mutex_);
    engine_ = std::move(engine);
  }

 private:
  void begin() {
    hasBegun_ = true;
    const auto engine = [this] {
      const base::Lock lock(mutex_);
      return engine_;
    }();
    if (engine) endRun(*engine);
  }

  std::atomic<bool> hasBegun_{false};
  base::Mutex mutex_;
  std::shared_ptr<tamb::IEngineFrontEnd> engine_ QOR_GUARDED_BY(mutex_);
  const EndingSignals signals_{[this] { begin(); }};
};

void serveEngine(const EngineOptions& options, const engines::IEngineFactory& factory,
                 const EngineReporter& parent, RunEnding& ending) {
  const auto made = engines::makeLocalEngine(
      tamb::EngineDescription(options.workflowManagerId, options.description, options.engineId), factory);
  // The channels' threads get the cores of this one.
  processes::Cores allCores;
  if (options.core) {
    allCores = processes::usableCores();
    processes::useCores({*options.core});
  }
  ending.setEngine(made.engine);
  // Commands arrive by the channel, notifications leave by it, and the engine is run by it: they are made in
  // the order in which they are needed, and destroyed in the opposite order.
  const auto notifications = std::make_shared<RunNotifications>(
      withEnginesEditRates(std::make_shared<TcpNotificationHubBackEnd>(
          options.workflowManagerId, options.engineId, options.notificationEndpoint)),
      options.workflowManagerId, options.engineId);
  made.engine->SetNotificationHubBackEnd(notifications);
  const TcpCommandProcessorBackEnd commands(withHostsEditRates(made.commandFrontEnd), made.commandBackEnd,
                                            options.commandEndpoint);
  const auto report = [&](const EngineReport& what) {
    // On the thread of the run, whatever that starts.
    if (options.core && what.event == EngineEvent::Running) useIfPossible(allCores);
    parent.report(what);
  };
  const auto served = std::make_shared<ServedEngine>(made.engine, notifications, report, ending.hasBegun());
  TcpEngineBackEnd control(served, options.requestEndpoint, options.statusEndpoint);
  parent.report({.event = EngineEvent::Made});
  awaitEngineControl(options);
  parent.report({.event = EngineEvent::Ready});
  control.waitForFrontEndTermination();
  parent.report({.event = EngineEvent::Leaving});
  served->leave(hostHasLeft);
}

}  // namespace

int runEngineChild(const EngineOptions& options, const EngineLoader& loader, const EngineReporter& parent) {
  const pid_t supervisor = ::getppid();
  try {
    std::shared_ptr<const engines::IEngineFactory> factory;  // outlives the engine
    RunEnding ending;
    factory = loader();
    serveEngine(options, *factory, parent, ending);
    // A supervisor that was killed removes nothing.
    if (::getppid() != supervisor) removeFilesOf(options, processes::BoundBy::Us);
    return EXIT_SUCCESS;
  } catch (...) {
    parent.report({.event = EngineEvent::Failed, .reason = tamb::CurrentExceptionText()});
    return EXIT_FAILURE;
  }
}

void removeFilesOf(const EngineOptions& options, processes::BoundBy boundBy) {
  processes::removeSocketFiles({options.requestEndpoint, options.statusEndpoint, options.commandEndpoint,
                                options.notificationEndpoint},
                               options.directory, boundBy);
}

}  // namespace qor::hosting
