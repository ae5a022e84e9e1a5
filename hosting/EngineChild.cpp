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
#include <system_error>

#include "hosting/TimeLimits.h"
#include "qor/utils/Log.h"
#include "runtime/base/Deadline.h"
#include "runtime/console/ErrorStream.h"
#include "runtime/console/LogLine.h"
#include "runtime/console/OneLine.h"
#include "runtime/processes/ChildProcess.h"

namespace qor::hosting {

using processes::LineReader;
using processes::Pipe;

namespace {

using std::chrono::seconds;

/// More than any pipe holds that has not been made larger, in reads of 4 KiB.
constexpr int readsToDrain = 64;

std::string inSeconds(seconds time) { return std::to_string(time.count()) + " s"; }

}  // namespace

EngineChild::EngineChild(const std::string& name, const std::function<int(const EngineReporter&)>& life) {
  Pipe reports;
  Pipe output;
  Pipe errors;
  const pid_t parent = ::getpid();
  process_ = ::fork();
  if (process_ < 0) {
    throw std::system_error(errno, std::system_category(), "cannot start the engine's process");
  }
  if (process_ == 0) {
    ::prctl(PR_SET_NAME, name.c_str());
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // It may have gone before the signal was asked for.
    if (::getppid() != parent) std::_Exit(EXIT_FAILURE);
    ::dup2(output.write.get(), STDOUT_FILENO);
    ::dup2(errors.write.get(), STDERR_FILENO);
    for (Pipe* const stream : {&output, &errors}) {
      stream->read.close();
      stream->write.close();
    }
    reports.read.close();
    // Line by line, as to a terminal: what a process has printed when it dies is not to die in its buffer.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    // The messaging context goes with the statics: what is unsent still gets its time.
    const int code = life(EngineReporter(std::move(reports.write)));
    std::exit(code);  // NOLINT(concurrency-mt-unsafe): the last thread
  }
  reports_ = LineReader(std::move(reports.read));
  output_ = LineReader(std::move(output.read));
  errors_ = LineReader(std::move(errors.read));
}

EngineChild::~EngineChild() {
  if (!isAlive_) return;
  ::kill(process_, SIGKILL);
  processes::waitForEnd(process_, engineExitsWithin);
  left_.end();
}

std::string EngineChild::cause() const {
  std::string text = "engine process " + std::to_string(process_);
  text += whyKilled_.empty() ? " died: " + processes::describeStatus(status_)
                             : " was killed by signal 9: it " + whyKilled_;
  for (const std::string& line : lastLines_) text += " | " + line;
  return text;
}

std::string EngineChild::startFailure() const {
  std::string text = failure_;
  // Whoever waits for a channel does not know why it does not open; the channel's thread has logged that.
  if (!isMade_) return text;
  for (const std::string& line : lastLines_) {
    if (line.starts_with("Error")) text += " | " + line;
  }
  return text;
}

void EngineChild::await(Clock::time_point deadline, int alsoAwaited) {
  // A killed process may take a while to exit.
  const bool mayBeOverdue = whyKilled_.empty();
  if (mayBeOverdue && askedToExit_) deadline = std::min(deadline, *askedToExit_ + engineExitsWithin);
  if (mayBeOverdue && stopIgnored_) deadline = std::min(deadline, *stopIgnored_ + engineStopsWithin);
  if (mayBeOverdue && frozen_) deadline = std::min(deadline, *frozen_ + longestFreeze);
  std::array<pollfd, 4> awaited{{{.fd = reports_.descriptor(), .events = POLLIN, .revents = 0},
                                 {.fd = output_.descriptor(), .events = POLLIN, .revents = 0},
                                 {.fd = errors_.descriptor(), .events = POLLIN, .revents = 0},
                                 {.fd = alsoAwaited, .events = POLLIN, .revents = 0}}};
  ::poll(awaited.data(), awaited.size(), base::pollTimeOut(deadline));
  if (awaited[0].revents != 0) takeReports();
  if (awaited[1].revents != 0) passOn(output_);
  if (awaited[2].revents != 0) passOn(errors_);
}

void EngineChild::processPendingEvents() {
  noticeChanges();
  killWhenOverdue();
}

void EngineChild::requestExit() {
  if (askedToExit_) return;
  askedToExit_ = Clock::now();
  ::kill(process_, SIGTERM);
}

void EngineChild::noticeChanges() {
  int status = 0;
  while (isAlive_) {
    // Any child: orphans that it has left so far are reaped as well.
    const pid_t child = ::waitpid(-1, &status, WNOHANG | WUNTRACED | WCONTINUED);
    if (child <= 0) return;
    if (child != process_) continue;
    if (WIFSTOPPED(status)) {
      frozen_ = Clock::now();
      utils::logWarning("Engine process " + std::to_string(process_) +
                        " was suspended; it is killed unless it is continued within " +
                        inSeconds(longestFreeze));
    } else if (WIFCONTINUED(status)) {
      frozen_.reset();
    } else {
      status_ = status;
      isAlive_ = false;
      drain();
    }
  }
}

void EngineChild::killWhenOverdue() {
  if (!isAlive_ || !whyKilled_.empty()) return;
  const auto now = Clock::now();
  if (askedToExit_ && now >= *askedToExit_ + engineExitsWithin) {
    whyKilled_ = "did not exit within " + inSeconds(engineExitsWithin);
  } else if (stopIgnored_ && now >= *stopIgnored_ + engineStopsWithin) {
    whyKilled_ = "did not stop within " + inSeconds(engineStopsWithin);
  } else if (frozen_ && now >= *frozen_ + longestFreeze) {
    whyKilled_ = "was suspended for " + inSeconds(longestFreeze);
  } else {
    return;
  }
  ::kill(process_, SIGKILL);
}

void EngineChild::takeReports() {
  reports_.readSome();
  for (std::string line; reports_.takeLine(line);) {
    if (const auto report = reportFrom(line)) {
      take(*report);
    } else {
      utils::logWarning("Engine process " + std::to_string(process_) + " reported \"" +
                        console::oneLine(line, longestLogLine) + "\", which is not a report");
    }
  }
}

void EngineChild::take(const EngineReport& report) {
  switch (report.event) {
    case EngineEvent::Made:
      isMade_ = true;
      break;
    case EngineEvent::Ready:
      isReady_ = true;
      break;
    case EngineEvent::Failed:
      failure_ = report.reason.empty() ? "no reason was given" : report.reason;
      break;
    case EngineEvent::Running:
      isRunning_ = true;
      // Should it report nothing more.
      runEnd_ = {.kind = RunEnd::Kind::Finished};
      break;
    case EngineEvent::StopRequested:
      isStopRequested_ = true;
      break;
    case EngineEvent::Idle:
      isRunning_ = false;
      runEnd_ = report.end.value_or(
          RunEnd{.kind = isStopRequested_ || isLeaving_ ? RunEnd::Kind::Stopped : RunEnd::Kind::Finished});
      stopIgnored_.reset();
      break;
    case EngineEvent::Leaving:
      isLeaving_ = true;
      break;
    case EngineEvent::Ended:  // a supervisor's
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

/// What it wrote before it died is still in the pipes. A process that it started may hold them open, and go
/// on writing, when it has disconnected as it should: only what is in them now is read.
void EngineChild::drain() {
  const auto drainOne = [](const LineReader& reader, const auto& read) {
    for (int reads = 0; reads < readsToDrain && reader.isOpen(); ++reads) {
      pollfd awaited{.fd = reader.descriptor(), .events = POLLIN, .revents = 0};
      if (::poll(&awaited, 1, 0) != 1) return;
      read();
    }
  };
  drainOne(reports_, [this] { takeReports(); });
  if (!isLeaving_ || status_ != 0) left_.end();
  drainOne(output_, [this] { passOn(output_); });
  drainOne(errors_, [this] { passOn(errors_); });
}

}  // namespace qor::hosting
