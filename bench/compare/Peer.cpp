#include "bench/compare/Peer.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "runtime/processes/ChildProcess.h"

extern char** environ;

namespace qor::bench {

namespace {

/// The share of its patience in which a process may clean up after the end of its line.
constexpr int partToTidyUp = 10;

pid_t spawn(std::string role, std::string task, int line) {
  std::string program = std::filesystem::read_symlink("/proc/self/exe");
  std::vector<char*> arguments{program.data(), role.data(), task.data(), nullptr};
  pid_t process = 0;
  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  // An interrupt of this program must not kill its child processes: they have to clean up.
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, line, Peer::lineDescriptor);
  const int error =
      ::posix_spawn(&process, program.c_str(), &actions, &attributes, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  ::posix_spawnattr_destroy(&attributes);
  if (error != 0)
    throw std::system_error(error, std::system_category(), "cannot start " + program + ' ' + role);
  return process;
}

}  // namespace

Peer::Peer(const char* role, const std::string& task, std::chrono::seconds patience) : patience_(patience) {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::system_category(), "cannot make a line between two processes");
  }
  line_ = std::make_unique<const Line>(ends[0], patience_);
  const Line itsEnd(ends[1], patience_);
  process_ = spawn(role, task, ends[1]);
}

Peer::~Peer() {
  if (process_ == 0) return;
  line_.reset();
  if (processes::waitForEnd(process_, patience_ / partToTidyUp)) return;
  ::kill(process_, SIGKILL);
  processes::waitForEnd(process_, patience_);
}

void Peer::waitForItsEnd() {
  const auto status = processes::waitForEnd(process_, patience_);
  if (!status) throw std::runtime_error("the other process does not end");
  process_ = 0;
  if (*status != 0) {
    throw std::runtime_error("the other process has failed: " + processes::describeStatus(*status));
  }
}

}  // namespace qor::bench
