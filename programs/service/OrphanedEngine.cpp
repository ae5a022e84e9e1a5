#include "programs/service/OrphanedEngine.h"

#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <stop_token>
#include <system_error>
#include <utility>

#include "hosting/TimeLimits.h"
#include "qor/utils/Log.h"
#include "runtime/processes/ChildProcess.h"

namespace qor::programs {

using processes::describeStatus;

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

bool reapGroup(pid_t group) {
  pid_t reaped = 0;
  do {
    reaped = ::waitpid(-group, nullptr, WNOHANG);
  } while (reaped > 0);
  return reaped < 0;
}

OrphanedEngine::OrphanedEngine(Content content) : content_(std::move(content)) {
  utils::logWarning(content_.name + " has lost its supervisor: " + describeStatus(content_.supervisorStatus));
}

OrphanedEngine::~OrphanedEngine() = default;

bool OrphanedEngine::processPendingEvents() {
  if (isOver_) {
    awaitEnd();
    if (isDead_) {
      std::error_code ignored;
      std::filesystem::remove_all(content_.directory, ignored);
    }
    return true;
  }
  if (isDead_ || !hasEnded()) return false;
  if (engineStatus_ == 0 || !isDead_) {
    // It has exited normally, or cannot be waited for because it is another process's child.
    logEnd(engineStatus_ ? describeStatus(*engineStatus_) : "its exit status is unknown", false);
    isOver_ = true;
    return processPendingEvents();
  }
  takeOver();
  return false;
}

bool OrphanedEngine::hasEnded() {
  if (content_.engineProcess != 0) {
    int status = 0;
    const pid_t reaped = ::waitpid(content_.engineProcess, &status, WNOHANG);
    if (reaped == 0) return false;
    if (reaped > 0) engineStatus_ = status;
    // Its supervisor may have reaped it already.
    isDead_ = reaped > 0 || (::kill(content_.engineProcess, 0) != 0 && errno == ESRCH);
  } else {
    isDead_ = reapGroup(content_.supervisor);
    if (!isDead_) return false;
  }
  if (isDead_ && !reapGroup(content_.supervisor)) ::kill(-content_.supervisor, SIGKILL);
  return true;
}

void OrphanedEngine::logEnd(const std::string& how, bool isBad) const {
  const auto lived = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - content_.started);
  const std::string text = content_.name + " ended after " + std::to_string(lived.count()) + " s: " + how;
  isBad ? utils::logWarning(text) : utils::logInfo(text);
}

void OrphanedEngine::takeOver() {
  content_.engine.cause = "engine process " + std::to_string(content_.engineProcess) + " died" +
                          (engineStatus_ ? ": " + describeStatus(*engineStatus_) : "") +
                          "; its supervisor had died: " + describeStatus(content_.supervisorStatus);
  logEnd("died: " + content_.engine.cause, true);
  const auto shortest = Clock::now() + hosting::shortestTakeover;
  try {
    takeover_ = std::jthread([this, shortest](const std::stop_token& stop) {
      try {
        hosting::takeOverEndpoints(content_.engine,
                                   [&] { return stop.stop_requested() && Clock::now() >= shortest; });
      } catch (const std::exception& error) {
        utils::logWarning(content_.name + ": cannot take over its endpoints: " + error.what());
      }
      isOver_ = true;
    });
  } catch (const std::exception& error) {
    utils::logWarning(content_.name + ": cannot take over its endpoints: " + error.what());
    isOver_ = true;
  }
}

void OrphanedEngine::requestEnd() { takeover_.request_stop(); }

void OrphanedEngine::awaitEnd() {
  if (takeover_.joinable()) takeover_.join();
}

}  // namespace qor::programs
