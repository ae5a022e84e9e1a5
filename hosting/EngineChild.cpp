#include "hosting/EngineChild.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include "qor/utils/Log.h"
#include "runtime/console/ErrorStream.h"
#include "runtime/console/LogLine.h"
#include "runtime/console/OneLine.h"
#include "runtime/processes/ChildProcess.h"

namespace qor::hosting {

using processes::LineReader;
using processes::Pipe;

namespace {

using std::chrono::seconds;

constexpr seconds timeToEnd{5};
constexpr seconds timeToStop{5};
/// As long as an engine allows its controller to be silent, and less than a controller allows the engine.
constexpr seconds longestFreeze{10};
/// Without a supervisor there is nobody else to end an engine that does not stop.
constexpr unsigned int lastSeconds = 10;
constexpr std::size_t keptLogLines = 5;
constexpr std::size_t longestLogLine = 300;
/// More than any pipe holds that has not been made larger, in reads of 4 KiB.
constexpr int readsToDrain = 64;

constexpr std::array<std::string_view, 6> eventNames{"made",           "ready", "running",
                                                     "stop requested", "idle",  "leaving"};
constexpr std::string_view failed = "failed ";
constexpr std::string_view runFailed = "run failed ";
/// A line that several threads may write at once has to fit into what a pipe takes whole: 4096 bytes.
constexpr std::size_t longestRunFailure = 4'000;

int millisecondsUntil(EngineChild::Clock::time_point deadline) {
  using std::chrono::milliseconds;
  const auto left = std::chrono::ceil<milliseconds>(deadline - EngineChild::Clock::now());
  return static_cast<int>(std::clamp(left, milliseconds(0), milliseconds(std::chrono::hours(1))).count());
}

std::string inSeconds(seconds time) { return std::to_string(time.count()) + " s"; }

}  // namespace

void EngineChild::Line::tell(EngineEvent event) const {
  // Until it can be connected to, nobody but its parent knows of it; from then on it has its controller.
  if (event == EngineEvent::Ready) ::prctl(PR_SET_PDEATHSIG, 0);
  if (event == EngineEvent::Leaving) ::alarm(lastSeconds);
  write(std::string(eventNames.at(static_cast<std::size_t>(event))));
}

void EngineChild::Line::tellFailure(const std::string& reason) const {
  write(std::string(failed) + console::oneLine(reason));
}

void EngineChild::Line::tellRunFailure(const std::string& reason) const {
  write(std::string(runFailed) + console::oneLine(reason, longestRunFailure));
}

void EngineChild::Line::write(const std::string& line) const {
  const std::string text = line + '\n';
  // When nobody listens any more, there is nobody to tell.
  [[maybe_unused]] const auto written = ::write(pipe_.get(), text.data(), text.size());
}

EngineChild::EngineChild(const std::function<int(const Line&)>& life) {
  Pipe events;
  Pipe output;
  Pipe errors;
  const pid_t parent = ::getpid();
  process_ = ::fork();
  if (process_ < 0) {
    throw std::system_error(errno, std::system_category(), "cannot start the engine's process");
  }
  if (process_ == 0) {
    ::prctl(PR_SET_NAME, "tamb-engine-run");
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // It may have gone before the signal was asked for.
    if (::getppid() != parent) std::_Exit(EXIT_FAILURE);
    ::dup2(output.write.get(), STDOUT_FILENO);
    ::dup2(errors.write.get(), STDERR_FILENO);
    for (Pipe* const stream : {&output, &errors}) {
      stream->read.close();
      stream->write.close();
    }
    events.read.close();
    // Line by line, as to a terminal: what a process has printed when it dies is not to die in its buffer.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    // The messaging context goes with the statics: what is unsent still gets its time.
    std::exit(life(Line(std::move(events.write))));  // NOLINT(concurrency-mt-unsafe): the last thread
  }
  events_ = LineReader(std::move(events.read));
  output_ = LineReader(std::move(output.read));
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
  for (const std::string& line : lastLines_) text += " | " + line;
  return text;
}

std::string EngineChild::startFailure() const {
  std::string text = failure_;
  // Whoever waits for a channel does not know why it does not open; the thread that opens it has logged that.
  if (!isMade_) return text;
  for (const std::string& line : lastLines_) {
    if (line.starts_with("Error")) text += " | " + line;
  }
  return text;
}

void EngineChild::await(Clock::time_point deadline, int alsoAwaited) {
  if (askedToEnd_) deadline = std::min(deadline, *askedToEnd_ + timeToEnd);
  if (stopIgnored_) deadline = std::min(deadline, *stopIgnored_ + timeToStop);
  if (frozen_) deadline = std::min(deadline, *frozen_ + longestFreeze);
  std::array<pollfd, 4> awaited{{{.fd = events_.descriptor(), .events = POLLIN, .revents = 0},
                                 {.fd = output_.descriptor(), .events = POLLIN, .revents = 0},
                                 {.fd = errors_.descriptor(), .events = POLLIN, .revents = 0},
                                 {.fd = alsoAwaited, .events = POLLIN, .revents = 0}}};
  ::poll(awaited.data(), awaited.size(), millisecondsUntil(deadline));
  if (awaited[0].revents != 0) takeEvents();
  if (awaited[1].revents != 0) passOn(output_);
  if (awaited[2].revents != 0) passOn(errors_);
}

void EngineChild::attend() {
  noticeChanges();
  killWhenOverdue();
}

void EngineChild::end() {
  if (askedToEnd_) return;
  askedToEnd_ = Clock::now();
  ::kill(process_, SIGTERM);
}

void EngineChild::noticeChanges() {
  int status = 0;
  while (isThere_ && ::waitpid(process_, &status, WNOHANG | WUNTRACED | WCONTINUED) == process_) {
    if (WIFSTOPPED(status)) {
      frozen_ = Clock::now();
      utils::logWarning("Engine process " + std::to_string(process_) +
                        " was stopped; it is killed when nobody continues it within " +
                        inSeconds(longestFreeze));
    } else if (WIFCONTINUED(status)) {
      frozen_.reset();
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
    whyKilled_ = "did not end within " + inSeconds(timeToEnd) + " of being asked to";
  } else if (stopIgnored_ && now >= *stopIgnored_ + timeToStop) {
    whyKilled_ = "did not stop within " + inSeconds(timeToStop) + " of being asked to";
  } else if (frozen_ && now >= *frozen_ + longestFreeze) {
    whyKilled_ = "was kept stopped for " + inSeconds(longestFreeze);
  } else {
    return;
  }
  ::kill(process_, SIGKILL);
}

void EngineChild::takeEvents() {
  events_.readSome();
  for (std::string line; events_.takeLine(line);) {
    const auto name = std::find(eventNames.begin(), eventNames.end(), line);
    if (name != eventNames.end()) take(static_cast<EngineEvent>(name - eventNames.begin()));
    if (line.starts_with(failed)) failure_ = line.substr(failed.size());
    if (line.starts_with(runFailed)) runFailure_ = line.substr(runFailed.size());
  }
}

void EngineChild::take(EngineEvent event) {
  switch (event) {
    case EngineEvent::Made:
      isMade_ = true;
      break;
    case EngineEvent::Ready:
      isReady_ = true;
      break;
    case EngineEvent::Running:
      isRunning_ = hasRun_ = true;
      break;
    case EngineEvent::StopRequested:
      isStopRequested_ = true;
      break;
    case EngineEvent::Idle:
      isRunning_ = false;
      wasStopped_ = isStopRequested_ || isLeaving_;
      stopIgnored_.reset();
      break;
    case EngineEvent::Leaving:
      isLeaving_ = true;
      break;
  }
  // A stop may be asked for before the run.
  if (isRunning_ && isStopRequested_ && !stopIgnored_) stopIgnored_ = Clock::now();
}

void EngineChild::passOn(LineReader& stream) {
  stream.readSome();
  for (std::string line; stream.takeLine(line);) {
    const bool isRecord = console::isLogRecord(line);
    console::writeErrorLine(isRecord ? line : console::capturedLine(line, process_));
    lastLines_.push_back(console::oneLine(isRecord ? console::withoutLogPrefix(line) : line, longestLogLine));
    if (lastLines_.size() > keptLogLines) lastLines_.pop_front();
  }
}

/// What it said before it died is still in the pipes. A process that it started may hold them open, and go on
/// writing: only what is there.
void EngineChild::drain() {
  const auto drainOne = [](const LineReader& reader, const auto& read) {
    for (int reads = 0; reads < readsToDrain && reader.isOpen(); ++reads) {
      pollfd awaited{.fd = reader.descriptor(), .events = POLLIN, .revents = 0};
      if (::poll(&awaited, 1, 0) != 1) return;
      read();
    }
  };
  drainOne(events_, [this] { takeEvents(); });
  drainOne(output_, [this] { passOn(output_); });
  drainOne(errors_, [this] { passOn(errors_); });
}

}  // namespace qor::hosting
