#include "programs/engine/Supervisor.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <exception>
#include <system_error>

#include "programs/engine/EngineProcess.h"
#include "programs/engine/LastWords.h"
#include "runtime/processes/ChildProcess.h"
#include "runtime/processes/Pipe.h"

namespace qor::programs {

using processes::describeStatus;
using processes::Descriptor;
using processes::LineReader;
using processes::Pipe;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds timeToBeReady{20};
constexpr std::chrono::seconds timeToStop{5};
constexpr std::size_t keptLogLines = 5;
constexpr std::size_t longestLogLine = 300;

constexpr const char* ready = "ready";
constexpr const char* leaving = "leaving";
constexpr std::string_view failed = "failed ";

/// Signals of this process as something to wait for, from the construction on.
class Signals {
 public:
  Signals() {
    ::sigemptyset(&set_);
    for (const int signal : {SIGTERM, SIGINT, SIGCHLD}) ::sigaddset(&set_, signal);
    ::pthread_sigmask(SIG_BLOCK, &set_, &before_);
    descriptor_ = Descriptor(::signalfd(-1, &set_, SFD_CLOEXEC | SFD_NONBLOCK));
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
  Descriptor descriptor_;
  bool asked_ = false;
};

void say(const Descriptor& events, const std::string& line) {
  const std::string text = line + '\n';
  // When nobody listens any more, there is nobody to tell.
  [[maybe_unused]] const auto written = ::write(events.get(), text.data(), text.size());
}

std::string inOneLine(std::string text) {
  for (char& character : text) {
    if (character == '\n' || character == '\r') character = ' ';
  }
  return text;
}

/// The child's life, from the fork to its exit code.
int beTheEngine(const EngineOptions& options, const Descriptor& events) {
  ::prctl(PR_SET_NAME, "tamb-engine-run");
  try {
    serveEngine(options,
                {.onReady = [&] { say(events, ready); }, .onLeaving = [&] { say(events, leaving); }});
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    say(events, std::string(failed) + inOneLine(error.what()));
    return EXIT_FAILURE;
  }
}

/// The child as its parent sees it.
class Child {
 public:
  Child(const EngineOptions& options, const Signals& signals) {
    Pipe events;
    Pipe errors;
    process_ = ::fork();
    if (process_ < 0)
      throw std::system_error(errno, std::system_category(), "cannot start the engine's process");
    if (process_ == 0) {
      signals.giveBack();
      ::dup2(errors.write.get(), STDERR_FILENO);
      events.read.close();
      errors.read.close();
      errors.write.close();
      // The messaging context goes with the statics: what is unsent still gets its time.
      std::exit(beTheEngine(options, events.write));  // NOLINT(concurrency-mt-unsafe): the last thread
    }
    events_ = LineReader(std::move(events.read));
    errors_ = LineReader(std::move(errors.read));
  }
  /// Ends it, should it still be there.
  ~Child() {
    if (isThere_) {
      kill(SIGKILL);
      ::waitpid(process_, &status_, 0);
    }
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t process() const { return process_; }
  bool isThere() const { return isThere_; }
  bool isReady() const { return isReady_; }
  bool isLeaving() const { return isLeaving_; }
  int status() const { return status_; }
  const std::string& failure() const { return failure_; }
  void kill(int signal) const { ::kill(process_, signal); }

  /// Waits for anything to happen, at most so long, and takes it in.
  void attend(std::chrono::milliseconds time, int alsoAwaited) {
    std::array<pollfd, 3> awaited{{{.fd = events_.descriptor(), .events = POLLIN, .revents = 0},
                                   {.fd = errors_.descriptor(), .events = POLLIN, .revents = 0},
                                   {.fd = alsoAwaited, .events = POLLIN, .revents = 0}}};
    ::poll(awaited.data(), awaited.size(), static_cast<int>(time.count()));
    if (awaited[0].revents != 0) takeEvents();
    if (awaited[1].revents != 0) passErrorsOn();
    if (isThere_ && ::waitpid(process_, &status_, WNOHANG) == process_) {
      isThere_ = false;
      drain();
    }
  }

  /// How it died, with the last lines of its log, in one line.
  std::string cause() const {
    std::string text = "engine process " + std::to_string(process_) + " died: " + describeStatus(status_);
    for (const std::string& line : lastErrors_) text += " | " + line;
    return text;
  }

 private:
  void takeEvents() {
    events_.readSome();
    for (std::string line; events_.takeLine(line);) {
      if (line == ready) isReady_ = true;
      if (line == leaving) isLeaving_ = true;
      if (line.starts_with(failed)) failure_ = line.substr(failed.size());
    }
  }

  /// The log goes where ours goes.
  void passErrorsOn() {
    errors_.readSome();
    for (std::string line; errors_.takeLine(line);) {
      [[maybe_unused]] const auto written = ::write(STDERR_FILENO, (line + '\n').data(), line.size() + 1);
      lastErrors_.push_back(line.substr(0, longestLogLine));
      if (lastErrors_.size() > keptLogLines) lastErrors_.pop_front();
    }
  }

  /// What it said before it died is still in the pipes. A process that it started may hold them open: only
  /// what is there.
  void drain() {
    const auto hasMore = [](const LineReader& reader) {
      pollfd awaited{.fd = reader.descriptor(), .events = POLLIN, .revents = 0};
      return reader.isOpen() && ::poll(&awaited, 1, 0) == 1;
    };
    while (hasMore(events_)) takeEvents();
    while (hasMore(errors_)) passErrorsOn();
  }

  pid_t process_ = 0;
  LineReader events_{Descriptor()};
  LineReader errors_{Descriptor()};
  bool isThere_ = true;
  bool isReady_ = false;
  bool isLeaving_ = false;
  int status_ = 0;
  std::string failure_;
  std::deque<std::string> lastErrors_;
};

std::chrono::milliseconds timeUntil(Clock::time_point deadline) {
  return std::max(std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()),
                  std::chrono::milliseconds(0));
}

}  // namespace

EngineEnd superviseEngine(const EngineOptions& options, const std::function<void(int pid)>& onReady,
                          const std::function<void(const std::string& reason)>& onFailure) {
  Signals signals;
  Child child(options, signals);
  const auto attendUntil = [&](Clock::time_point deadline, const auto& condition) {
    while (child.isThere() && !condition() && Clock::now() < deadline) {
      child.attend(timeUntil(deadline), signals.descriptor());
      if (signals.endIsAskedFor()) child.kill(SIGTERM);
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
  while (child.isThere() && !child.isLeaving()) {
    attendUntil(Clock::now() + std::chrono::hours(1), [&] { return child.isLeaving(); });
  }
  if (child.isLeaving()) {
    attendUntil(Clock::now() + timeToStop, [] { return false; });
    if (!child.isThere()) return child.status() == 0 ? EngineEnd::Served : EngineEnd::Died;
    onFailure("engine process " + std::to_string(child.process()) + " did not stop within " +
              std::to_string(timeToStop.count()) + " s and was killed");
    return EngineEnd::Died;
  }
  onFailure(child.cause());
  speakForTheDead(options, child.cause(), [&] { return signals.endIsAskedFor(); });
  return EngineEnd::Died;
}

}  // namespace qor::programs
