#include "programs/engine/EngineChild.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

#include "programs/support/OneLine.h"
#include "qor/utils/Log.h"
#include "runtime/processes/ChildProcess.h"

namespace qor::programs {

using processes::Descriptor;
using processes::LineReader;
using processes::Pipe;

namespace {

constexpr std::chrono::seconds timeToEnd{5};
/// As long as an engine allows its controller to be silent, and less than a controller allows the engine.
constexpr std::chrono::seconds longestStop{10};
constexpr std::size_t keptLogLines = 5;
constexpr std::size_t longestLogLine = 300;
constexpr std::string_view failed = "failed ";

int millisecondsUntil(EngineChild::Clock::time_point deadline) {
  using std::chrono::milliseconds;
  const auto left = std::chrono::ceil<milliseconds>(deadline - EngineChild::Clock::now());
  return static_cast<int>(std::clamp(left, milliseconds(0), milliseconds(std::chrono::hours(1))).count());
}

}  // namespace

void EngineChild::Events::say(const std::string& line) const {
  const std::string text = oneLine(line) + '\n';
  // When nobody listens any more, there is nobody to tell.
  [[maybe_unused]] const auto written = ::write(pipe_.get(), text.data(), text.size());
}

EngineChild::EngineChild(const std::function<int(const Events&)>& life) {
  Pipe events;
  Pipe errors;
  process_ = ::fork();
  if (process_ < 0) {
    throw std::system_error(errno, std::system_category(), "cannot start the engine's process");
  }
  if (process_ == 0) {
    ::prctl(PR_SET_NAME, "tamb-engine-run");
    ::dup2(errors.write.get(), STDERR_FILENO);
    events.read.close();
    errors.read.close();
    errors.write.close();
    // The messaging context goes with the statics: what is unsent still gets its time.
    std::exit(life(Events(std::move(events.write))));  // NOLINT(concurrency-mt-unsafe): the last thread
  }
  events_ = LineReader(std::move(events.read));
  errors_ = LineReader(std::move(errors.read));
}

EngineChild::~EngineChild() {
  if (!isThere_) return;
  ::kill(process_, SIGKILL);
  processes::waitForEnd(process_, timeToEnd);
}

std::string EngineChild::cause() const {
  std::string text =
      "engine process " + std::to_string(process_) + " died: " + processes::describeStatus(status_);
  if (!whyKilled_.empty()) text += ", for it " + whyKilled_;
  for (const std::string& line : lastErrors_) text += " | " + line;
  return text;
}

void EngineChild::attend(Clock::time_point deadline, int alsoAwaited) {
  if (askedToEnd_) deadline = std::min(deadline, *askedToEnd_ + timeToEnd);
  if (stopped_) deadline = std::min(deadline, *stopped_ + longestStop);
  std::array<pollfd, 3> awaited{{{.fd = events_.descriptor(), .events = POLLIN, .revents = 0},
                                 {.fd = errors_.descriptor(), .events = POLLIN, .revents = 0},
                                 {.fd = alsoAwaited, .events = POLLIN, .revents = 0}}};
  ::poll(awaited.data(), awaited.size(), millisecondsUntil(deadline));
  if (awaited[0].revents != 0) takeEvents();
  if (awaited[1].revents != 0) passErrorsOn();
  noticeChange();
  killWhenOverdue();
}

void EngineChild::end() {
  if (askedToEnd_) return;
  askedToEnd_ = Clock::now();
  ::kill(process_, SIGTERM);
}

void EngineChild::noticeChange() {
  int status = 0;
  while (isThere_ && ::waitpid(process_, &status, WNOHANG | WUNTRACED | WCONTINUED) == process_) {
    if (WIFSTOPPED(status)) {
      stopped_ = Clock::now();
      utils::logWarning("Engine process " + std::to_string(process_) +
                        " was stopped; it is killed when nobody continues it within " +
                        std::to_string(longestStop.count()) + " s");
    } else if (WIFCONTINUED(status)) {
      stopped_.reset();
    } else {
      status_ = status;
      isThere_ = false;
      drain();
    }
  }
}

void EngineChild::killWhenOverdue() {
  if (!isThere_ || !whyKilled_.empty()) return;
  const auto now = Clock::now();
  if (askedToEnd_ && now >= *askedToEnd_ + timeToEnd) {
    whyKilled_ = "did not end within " + std::to_string(timeToEnd.count()) + " s of being asked to";
  } else if (stopped_ && now >= *stopped_ + longestStop) {
    whyKilled_ = "was kept stopped for " + std::to_string(longestStop.count()) + " s";
  } else {
    return;
  }
  ::kill(process_, SIGKILL);
}

void EngineChild::takeEvents() {
  events_.readSome();
  for (std::string line; events_.takeLine(line);) {
    if (line == "ready") isReady_ = true;
    if (line == "leaving") isLeaving_ = true;
    if (line.starts_with(failed)) failure_ = line.substr(failed.size());
  }
}

/// The log goes where ours goes.
void EngineChild::passErrorsOn() {
  errors_.readSome();
  for (std::string line; errors_.takeLine(line);) {
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, (line + '\n').data(), line.size() + 1);
    lastErrors_.push_back(oneLine(line, longestLogLine));
    if (lastErrors_.size() > keptLogLines) lastErrors_.pop_front();
  }
}

/// What it said before it died is still in the pipes. A process that it started may hold them open: only what
/// is there.
void EngineChild::drain() {
  const auto hasMore = [](const LineReader& reader) {
    pollfd awaited{.fd = reader.descriptor(), .events = POLLIN, .revents = 0};
    return reader.isOpen() && ::poll(&awaited, 1, 0) == 1;
  };
  while (hasMore(events_)) takeEvents();
  while (hasMore(errors_)) passErrorsOn();
}

}  // namespace qor::programs
