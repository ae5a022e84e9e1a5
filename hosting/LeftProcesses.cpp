#include "hosting/LeftProcesses.h"

#include <sys/prctl.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>

#include "runtime/base/Deadline.h"
#include "runtime/processes/ChildProcess.h"

namespace qor::hosting {

namespace {

using base::Deadline;

/// A killed process exits within microseconds, as a rule; hosts wait for what comes next.
constexpr std::chrono::seconds longestEnd{1};

/// Those of the calling thread, orphans that it has inherited included.
std::vector<pid_t> children() {
  std::ifstream file("/proc/thread-self/children");
  return {std::istream_iterator<pid_t>(file), {}};
}

}  // namespace

LeftProcesses::LeftProcesses() : others_(children()) { ::prctl(PR_SET_CHILD_SUBREAPER, 1); }

void LeftProcesses::end() const {
  const Deadline deadline = Deadline::clock::now() + longestEnd;
  do {
    auto left = children();
    std::erase_if(left, [this](pid_t child) { return std::ranges::find(others_, child) != others_.end(); });
    if (left.empty()) return;
    for (const pid_t child : left) ::kill(child, SIGKILL);
    for (const pid_t child : left) processes::waitForEnd(child, base::timeUntil(deadline));
  } while (Deadline::clock::now() < deadline);
}

}  // namespace qor::hosting
