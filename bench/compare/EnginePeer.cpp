#include "bench/compare/EnginePeer.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "bench/compare/Run.h"
#include "runtime/processes/ChildProcess.h"

extern char** environ;

namespace qor::bench {

namespace {

constexpr std::chrono::seconds patience{60};

pid_t spawn(const std::string& task, int line) {
  std::string program = "/proc/self/exe";
  std::string argument = engineArgument;
  std::string taskText = task;
  std::vector<char*> arguments{program.data(), argument.data(), taskText.data(), nullptr};
  pid_t process = 0;
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, line, EnginePeer::lineDescriptor);
  const int error = ::posix_spawn(&process, program.c_str(), &actions, nullptr, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::system_error(error, std::system_category(), "cannot start the engine's process");
  return process;
}

}  // namespace

EnginePeer::EnginePeer(const std::string& task) {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::system_category(), "cannot make a line between two processes");
  }
  line_ = std::make_unique<const Line>(ends[0]);
  const Line itsEnd(ends[1]);
  process_ = spawn(task, ends[1]);
}

EnginePeer::~EnginePeer() {
  if (process_ == 0) return;
  ::kill(process_, SIGKILL);
  processes::waitForEnd(process_, patience);
}

void EnginePeer::waitForItsEnd() {
  const auto status = processes::waitForEnd(process_, patience);
  if (!status) throw std::runtime_error("the engine's process does not end");
  process_ = 0;
  if (*status != 0) {
    throw std::runtime_error("the engine's process has failed: " + processes::describeStatus(*status));
  }
}

}  // namespace qor::bench
