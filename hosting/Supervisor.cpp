#include "hosting/Supervisor.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <exception>
#include <system_error>
#include <variant>

#include "hosting/EngineChild.h"
#include "hosting/EngineProcess.h"
#include "hosting/EngineProgram.h"
#include "hosting/EngineTakeover.h"
#include "hosting/TimeLimits.h"
#include "qor/utils/Log.h"
#include "runtime/base/FileDescriptor.h"
#include "runtime/console/LogLine.h"
#include "runtime/messaging/TcpListener.h"
#include "runtime/processes/Pipe.h"
#include "runtime/processes/SocketFiles.h"

namespace qor::hosting {

namespace {

using Clock = EngineChild::Clock;

/// Signals of this process as something to wait for, from the construction on.
class Signals {
 public:
  Signals() {
    ::sigemptyset(&set_);
    for (const int signal : {SIGTERM, SIGINT, SIGCHLD}) ::sigaddset(&set_, signal);
    // Unless it is to outlive its terminal.
    struct sigaction onHangUp {};
    ::sigaction(SIGHUP, nullptr, &onHangUp);
    if (onHangUp.sa_handler != SIG_IGN) ::sigaddset(&set_, SIGHUP);
    ::pthread_sigmask(SIG_BLOCK, &set_, &before_);
    descriptor_ = base::FileDescriptor(::signalfd(-1, &set_, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!descriptor_.isOpen())
      throw std::system_error(errno, std::system_category(), "cannot wait for signals");
  }

  int descriptor() const { return descriptor_.get(); }
  /// In a child: signals have their usual effect there.
  void restore() const { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  /// Reads pending signals; whether this process was asked to exit, now or before.
  bool shouldStop() {
    signalfd_siginfo signal{};
    while (::read(descriptor_.get(), &signal, sizeof signal) == sizeof signal) {
      if (signal.ssi_signo != SIGCHLD) asked_ = true;
    }
    return asked_;
  }

 private:
  sigset_t set_{};
  sigset_t before_{};
  base::FileDescriptor descriptor_;
  bool asked_ = false;
};

/// Has the log lines of both processes begin with their ids and the engine.
void setOriginOfBoth(pid_t supervisor, pid_t engine, const EngineOptions& options) {
  console::setLogOrigin(options.program + ' ' + std::to_string(supervisor) + '/' + std::to_string(engine) +
                        ", " + console::engineName(options.workflowManagerId, options.engineId));
}

/// Throws std::runtime_error, one line, when somebody listens on an endpoint that the engine is to bind.
/// Another engine there would be taken for the new one, which binds on threads of its own: it answers as if
/// that were ready.
void requireNobodyListens(const EngineOptions& options) {
  processes::requireNobodyListens(
      {options.requestEndpoint, options.statusEndpoint, options.notificationEndpoint});
  for (const auto* const endpoint :
       {&options.requestEndpoint, &options.statusEndpoint, &options.notificationEndpoint}) {
    // We listen ourselves on a port that is reserved.
    const bool isToBeBound =
        endpoint->transport() == socket::SocketEndpoint::Transport::Tcp && endpoint->reservation() == nullptr;
    if (isToBeBound) static_cast<void>(socket::listenOnTcp(endpoint->host(), endpoint->port()));
  }
}

/// The child's life.
int runChild(const EngineOptions& options, const EngineToRun& engine, const EngineReporter& parent) {
  setOriginOfBoth(::getppid(), ::getpid(), options);
  if (const auto* const program = std::get_if<EngineProgram>(&engine)) {
    return becomeProgram(*program, options, parent);
  }
  if (options.readyDescriptor > STDERR_FILENO) ::close(options.readyDescriptor);
  return runEngineChild(options, std::get<EngineLoader>(engine), parent);
}

/// A supervisor's work, from the start of the child until hosts have been informed of its end.
class Supervision {
 public:
  Supervision(const EngineOptions& options, const EngineToRun& engine,
              const std::function<void(const std::string&)>& onFailure)
      : options_(options), engine_(engine), onFailure_(onFailure) {
    setOriginOfBoth(::getpid(), child_.process(), options);
  }

  EngineOutcome run(const std::function<void(int)>& onReady) {
    superviseUntil(Clock::now() + engineReadyWithin,
                   [&] { return child_.isReady() || child_.hasFailed() || !child_.canReport(); });
    if (!child_.isReady()) {
      // What it logs on its way out belongs to the reason.
      if (child_.hasFailed() || !child_.canReport())
        superviseUntil(Clock::now() + failedExitsWithin, [] { return false; });
      return reportNotStarted();
    }
    onReady(child_.process());
    // Its host bounds its life: it leaves when that is silent.
    superviseUntil(Clock::time_point::max(), [&] { return child_.isLeaving(); });
    if (child_.isAlive()) superviseUntil(Clock::now() + engineStopsWithin, [] { return false; });
    if (child_.isAlive()) {
      const std::string reason = "engine process " + std::to_string(child_.process()) +
                                 " was killed by signal 9: it did not stop within " +
                                 std::to_string(engineStopsWithin.count()) + " s";
      onFailure_(reason);
      return {EngineEnd::Died, RunEnd{RunEnd::Kind::Died, reason}};
    }
    if (child_.isLeaving() && child_.status() == 0) return {EngineEnd::Served, child_.runEnd()};
    const RunEnd death{RunEnd::Kind::Died, child_.cause()};
    // Once its host has disconnected, nobody is left to be informed.
    if (!child_.isLeaving()) serveDeathNotice(death);
    reportDeath(death);
    return {EngineEnd::Died, death};
  }

 private:
  template <class Condition>
  void superviseUntil(Clock::time_point deadline, const Condition& condition) {
    while (child_.isAlive() && !condition() && Clock::now() < deadline) {
      child_.await(deadline, signals_.descriptor());
      // The signals are read first: one that comes after this look ends the next wait.
      if (signals_.shouldStop()) child_.requestExit();
      child_.processPendingEvents();
    }
  }

  EngineOutcome reportNotStarted() {
    const std::string failure = child_.startFailure();
    if (!failure.empty()) {
      onFailure_(failure);
    } else if (!child_.isAlive()) {
      onFailure_(child_.cause());
    } else if (!child_.canReport()) {
      onFailure_("the engine closed its report descriptor before it was ready");
    } else {
      onFailure_("the engine was not ready within " + std::to_string(engineReadyWithin.count()) + " s");
    }
    return {};
  }

  /// Once.
  void reportDeath(const RunEnd& death) {
    if (!deathIsReported_) onFailure_(death.reason);
    deathIsReported_ = true;
  }

  /// The host comes first: reports may block on a reader that does not read. From then on it is served for a
  /// while.
  void serveDeathNotice(const RunEnd& death) {
    const auto shortest = Clock::now() + shortestTakeover;
    try {
      const DeadEngine engine{.workflowManagerId = options_.workflowManagerId,
                              .engineId = options_.engineId,
                              .requestEndpoint = options_.requestEndpoint,
                              .statusEndpoint = options_.statusEndpoint,
                              .notificationEndpoint = options_.notificationEndpoint,
                              .cause = death.reason};
      takeOverEndpoints(engine, [&] {
        reportDeath(death);
        return signals_.shouldStop() && Clock::now() >= shortest;
      });
    } catch (const std::exception& error) {
      utils::logWarning(std::string("Cannot take over the dead engine's endpoints: ") + error.what());
    }
  }

  const EngineOptions& options_;
  const EngineToRun& engine_;
  const std::function<void(const std::string&)>& onFailure_;
  bool deathIsReported_ = false;
  Signals signals_;
  EngineChild child_{options_.program + "-run", [this](const EngineReporter& parent) {
                       signals_.restore();
                       return runChild(options_, engine_, parent);
                     }};
};

}  // namespace

EngineOutcome superviseEngine(const EngineOptions& options, const EngineToRun& engine,
                              const std::function<void(int pid)>& onReady,
                              const std::function<void(const std::string& reason)>& onFailure) {
  EngineOutcome outcome;
  try {
    requireNobodyListens(options);
    outcome = Supervision(options, engine, onFailure).run(onReady);
  } catch (const std::exception& error) {
    onFailure(error.what());
  }
  // Whoever is on the endpoints of an engine that was not ready may be another.
  const bool wasReady = outcome.end != EngineEnd::NotStarted;
  removeFilesOf(options, wasReady ? processes::BoundBy::Us : processes::BoundBy::Anybody);
  return outcome;
}

}  // namespace qor::hosting
