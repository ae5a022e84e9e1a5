#include "programs/engine/Supervisor.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <system_error>

#include "programs/engine/EngineChild.h"
#include "programs/engine/EngineProcess.h"
#include "programs/engine/LastWords.h"
#include "qor/utils/Log.h"
#include "runtime/processes/Pipe.h"

namespace qor::programs {

namespace {

using Clock = EngineChild::Clock;

constexpr std::chrono::seconds timeToBeReady{20};
constexpr std::chrono::seconds timeToStop{5};

/// Signals of this process as something to wait for, from the construction on.
class Signals {
 public:
  Signals() {
    ::sigemptyset(&set_);
    for (const int signal : {SIGTERM, SIGINT, SIGCHLD}) ::sigaddset(&set_, signal);
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

/// The child's life.
int beTheEngine(const EngineOptions& options, const EngineChild::Events& events) {
  try {
    serveEngine(options, {.onReady = [&] { events.ready(); }, .onLeaving = [&] { events.leaving(); }});
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    events.failed(error.what());
    return EXIT_FAILURE;
  }
}

}  // namespace

EngineEnd superviseEngine(const EngineOptions& options, const std::function<void(int pid)>& onReady,
                          const std::function<void(const std::string& reason)>& onFailure) {
  Signals signals;
  EngineChild child([&](const EngineChild::Events& events) {
    signals.giveBack();
    return beTheEngine(options, events);
  });
  const auto attendUntil = [&](Clock::time_point deadline, const auto& condition) {
    while (child.isThere() && !condition() && Clock::now() < deadline) {
      child.attend(deadline, signals.descriptor());
      if (signals.endIsAskedFor()) child.end();
    }
  };

  attendUntil(Clock::now() + timeToBeReady, [&] { return child.isReady(); });
  if (!child.isReady()) {
    const bool wasSlow = child.isThere();
    onFailure(!child.failure().empty() ? child.failure()
              : wasSlow ? "the engine was not ready within " + std::to_string(timeToBeReady.count()) + " s"
                        : child.cause());
    return EngineEnd::NotStarted;
  }
  onReady(child.process());

  // Its life is bounded by its controller's, whom it listens to.
  attendUntil(Clock::time_point::max(), [&] { return child.isLeaving(); });
  if (child.isLeaving()) {
    attendUntil(Clock::now() + timeToStop, [] { return false; });
    if (!child.isThere()) return child.status() == 0 ? EngineEnd::Served : EngineEnd::Died;
    onFailure("engine process " + std::to_string(child.process()) + " did not stop within " +
              std::to_string(timeToStop.count()) + " s and was killed");
    return EngineEnd::Died;
  }
  onFailure(child.cause());
  try {
    speakForTheDead(options, child.cause(), [&] { return signals.endIsAskedFor(); });
  } catch (const std::exception& error) {
    utils::logWarning(std::string("Nobody speaks for the dead engine: ") + error.what());
  }
  return EngineEnd::Died;
}

}  // namespace qor::programs
