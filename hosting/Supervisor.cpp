#include "hosting/Supervisor.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <system_error>

#include "hosting/EngineChild.h"
#include "hosting/EngineProcess.h"
#include "hosting/EngineTakeover.h"
#include "qor/utils/Log.h"
#include "runtime/console/LogLine.h"
#include "runtime/processes/Pipe.h"
#include "runtime/processes/SocketFiles.h"

namespace qor::hosting {

namespace {

using Clock = EngineChild::Clock;

constexpr std::chrono::seconds timeToBeReady{20};
constexpr std::chrono::seconds timeToStop{5};
/// For hosts that are there, even when this process is asked to end.
constexpr std::chrono::seconds timeForTakeover{2};

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
    descriptor_ = processes::Descriptor(::signalfd(-1, &set_, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!descriptor_.isOpen()) throw std::system_error(errno, std::system_category(), "cannot await signals");
  }

  int descriptor() const { return descriptor_.get(); }
  /// In a child: signals do there what they do by themselves.
  void giveBack() const { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  /// Takes in what has come; whether the end of this process was asked for, now or before.
  bool endIsAskedFor() {
    signalfd_siginfo signal{};
    while (::read(descriptor_.get(), &signal, sizeof signal) == sizeof signal) {
      if (signal.ssi_signo != SIGCHLD) asked_ = true;
    }
    return asked_;
  }

 private:
  sigset_t set_{};
  sigset_t before_{};
  processes::Descriptor descriptor_;
  bool asked_ = false;
};

void removeFilesOf(const EngineOptions& options) {
  processes::removeSocketFiles({options.requestEndpoint, options.statusEndpoint, options.commandEndpoint,
                                options.notificationEndpoint},
                               options.directory);
}

/// Has the log lines of both processes begin with their ids and the engine.
void setOriginOfBoth(pid_t supervisor, pid_t engine, const EngineOptions& options) {
  console::setLogOrigin("tamb-engine " + std::to_string(supervisor) + '/' + std::to_string(engine) + ", " +
                        console::engineName(options.workflowManagerId, options.engineId));
}

/// The child's life.
int beTheEngine(const EngineOptions& options, const EngineChild::Line& parent) {
  const pid_t parentProcess = ::getppid();
  setOriginOfBoth(parentProcess, ::getpid(), options);
  if (options.readyDescriptor > STDERR_FILENO) ::close(options.readyDescriptor);
  try {
    serveEngine(
        options, [&](EngineEvent event) { parent.tell(event); },
        [&](const std::string& reason) { parent.tellRunFailure(reason); });
    // A parent that was killed removes nothing.
    if (::getppid() != parentProcess) removeFilesOf(options);
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    parent.tellFailure(error.what());
    return EXIT_FAILURE;
  }
}

/// A supervisor's work, from the start of the child to its end, which hosts are told of.
class Supervision {
 public:
  Supervision(const EngineOptions& options, const std::function<void(const std::string&)>& onFailure)
      : options_(options), onFailure_(onFailure) {
    setOriginOfBoth(::getpid(), child_.process(), options);
  }

  EngineOutcome run(const std::function<void(int)>& onReady) {
    attendUntil(Clock::now() + timeToBeReady, [&] { return child_.isReady(); });
    if (!child_.isReady()) return reportNotStarted();
    onReady(child_.process());
    // Its life is bounded by its controller's, whom it listens to.
    attendUntil(Clock::time_point::max(), [&] { return child_.isLeaving(); });
    if (child_.isThere()) attendUntil(Clock::now() + timeToStop, [] { return false; });
    if (child_.isThere()) {
      const std::string reason = "engine process " + std::to_string(child_.process()) +
                                 " did not stop within " + std::to_string(timeToStop.count()) +
                                 " s and was killed";
      onFailure_(reason);
      return {EngineEnd::Died, "died", reason};
    }
    if (child_.isLeaving() && child_.status() == 0) return served();
    // Once its controller has gone, there is nobody to tell.
    if (!child_.isLeaving()) takeOver();
    reportDeath();
    return {EngineEnd::Died, "died", child_.cause()};
  }

 private:
  template <class Condition>
  void attendUntil(Clock::time_point deadline, const Condition& condition) {
    while (child_.isThere() && !condition() && Clock::now() < deadline) {
      child_.await(deadline, signals_.descriptor());
      // The signals are taken in first: one that comes after this look ends the next wait.
      if (signals_.endIsAskedFor()) child_.end();
      child_.attend();
    }
  }

  EngineOutcome served() const {
    if (!child_.runFailure().empty()) return {EngineEnd::Served, "failed", child_.runFailure()};
    const char* const word = !child_.hasRun() ? "unused" : child_.wasStopped() ? "stopped" : "finished";
    return {EngineEnd::Served, word, ""};
  }

  EngineOutcome reportNotStarted() {
    const bool wasSlow = child_.isThere();
    const std::string failure = child_.startFailure();
    onFailure_(!failure.empty() ? failure
               : wasSlow ? "the engine was not ready within " + std::to_string(timeToBeReady.count()) + " s"
                         : child_.cause());
    return {};
  }

  /// Once.
  void reportDeath() {
    if (!deathIsReported_) onFailure_(child_.cause());
    deathIsReported_ = true;
  }

  /// The host comes first: reports go where a reader may stand still. From then on it is served for a while.
  void takeOver() {
    const auto shortest = Clock::now() + timeForTakeover;
    try {
      const DeadEngine engine{.workflowManagerId = options_.workflowManagerId,
                              .engineId = options_.engineId,
                              .requestEndpoint = options_.requestEndpoint,
                              .statusEndpoint = options_.statusEndpoint,
                              .notificationEndpoint = options_.notificationEndpoint,
                              .cause = child_.cause()};
      takeOverEndpoints(engine, [&] {
        reportDeath();
        return signals_.endIsAskedFor() && Clock::now() >= shortest;
      });
    } catch (const std::exception& error) {
      utils::logWarning(std::string("The dead engine's endpoints cannot be taken over: ") + error.what());
    }
  }

  const EngineOptions& options_;
  const std::function<void(const std::string&)>& onFailure_;
  bool deathIsReported_ = false;
  Signals signals_;
  EngineChild child_{[this](const EngineChild::Line& parent) {
    signals_.giveBack();
    return beTheEngine(options_, parent);
  }};
};

}  // namespace

EngineOutcome superviseEngine(const EngineOptions& options, const std::function<void(int pid)>& onReady,
                              const std::function<void(const std::string& reason)>& onFailure) {
  EngineOutcome outcome;
  try {
    outcome = Supervision(options, onFailure).run(onReady);
  } catch (const std::exception& error) {
    onFailure(error.what());
  }
  removeFilesOf(options);
  return outcome;
}

}  // namespace qor::hosting
