#include "runtime/processes/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>
#include <utility>

#include "runtime/base/Deadline.h"

namespace qor::processes {

namespace {

using base::Deadline;
using Clock = Deadline::clock;

/// Time for a killed process to exit; it takes longer only when a system call hangs in a device.
constexpr std::chrono::seconds timeToDie{10};

/// Poll interval when no pidfd is available.
constexpr std::chrono::milliseconds timeBetweenLooks{20};

/// A pidfd, readable once the child has exited; not open when no descriptor is left.
base::FileDescriptor processDescriptor(pid_t child) {
  return base::FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
}

/// How long to wait before the child is polled again: until the deadline if a pidfd reports its exit.
std::chrono::milliseconds timeToLook(const base::FileDescriptor& process, Deadline deadline) {
  const auto left = base::timeUntil(deadline);
  return process.isOpen() ? left : std::min(left, timeBetweenLooks);
}

/// File actions and attributes for posix_spawn.
class SpawnSettings {
 public:
  SpawnSettings(int input, int output, ChildProcess::Lines lines) {
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    if (lines == ChildProcess::Lines::OnStandardOutput) {
      ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    } else {
      ::posix_spawn_file_actions_adddup2(&actions, output, ChildProcess::lineDescriptor);
      ::posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    }
    ::posix_spawnattr_init(&attributes);
    sigset_t none;
    ::sigemptyset(&none);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    // The child must not inherit the signals that we ignore.
    sigset_t ignored;
    ::sigemptyset(&ignored);
    for (const int signal : {SIGPIPE, SIGCHLD}) ::sigaddset(&ignored, signal);
    ::posix_spawnattr_setsigdefault(&attributes, &ignored);
    ::posix_spawnattr_setflags(&attributes,
                               POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~SpawnSettings() {
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attributes{};
};

/// Writes the whole input at once into a pipe that is large enough, without waiting for the reader.
void fill(Pipe& pipe, const std::string& input) {
  const int size = static_cast<int>(input.size()) + 1;
  const bool fits = size <= ::fcntl(pipe.write.get(), F_GETPIPE_SZ);
  if ((!fits && ::fcntl(pipe.write.get(), F_SETPIPE_SZ, size) < 0) ||
      ::write(pipe.write.get(), input.data(), input.size()) != static_cast<ssize_t>(input.size())) {
    throw std::system_error(errno, std::system_category(), "cannot pass the input to a program");
  }
  pipe.write.close();
}

}  // namespace

ChildProcess::ChildProcess(const std::filesystem::path& program, std::vector<std::string> arguments,
                           const std::string& input, Lines lines) {
  Pipe in;
  Pipe out;
  fill(in, input);
  arguments.insert(arguments.begin(), program.string());
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  const SpawnSettings settings(in.read.get(), out.write.get(), lines);
  const int error = ::posix_spawn(&pid_, program.c_str(), &settings.actions, &settings.attributes,
                                  pointers.data(), environ);
  if (error != 0) throw std::system_error(error, std::system_category(), "cannot start " + program.string());
  output_ = LineReader(std::move(out.read));
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds time) {
  const auto deadline = Clock::now() + time;
  const base::FileDescriptor process = status_ ? base::FileDescriptor() : processDescriptor(pid_);
  std::string line;
  while (!output_.takeLine(line)) {
    if (!output_.isOpen()) return std::nullopt;
    std::array<pollfd, 2> awaited{{{.fd = output_.descriptor(), .events = POLLIN, .revents = 0},
                                   {.fd = process.get(), .events = POLLIN, .revents = 0}}};
    // Reap first: everything written before the exit is then in the pipe.
    if (!process.isOpen()) reap();
    ::poll(awaited.data(), awaited.size(), static_cast<int>(timeToLook(process, deadline).count()));
    if (awaited[0].revents != 0) {
      output_.readSome();
    } else if (awaited[1].revents != 0 || status_ || Clock::now() >= deadline) {
      // Another process may hold the output of an exited program open.
      return std::nullopt;
    }
  }
  return line;
}

std::optional<int> ChildProcess::reap() { return waitForEnd(std::chrono::milliseconds(0)); }

std::optional<int> ChildProcess::waitForEnd(std::chrono::milliseconds time) {
  if (!status_) status_ = processes::waitForEnd(pid_, time);
  return status_;
}

void ChildProcess::signal(int number) const {
  if (!status_) ::kill(pid_, number);
}

void ChildProcess::end(std::chrono::milliseconds grace) {
  signal(SIGTERM);
  if (waitForEnd(grace)) return;
  signal(SIGKILL);
  waitForEnd(timeToDie);
}

std::optional<int> waitForEnd(pid_t child, std::chrono::milliseconds time) {
  const auto deadline = Clock::now() + time;
  const base::FileDescriptor process = processDescriptor(child);
  for (int status = 0;;) {
    if (::waitpid(child, &status, WNOHANG) == child) return status;
    if (Clock::now() >= deadline) return std::nullopt;
    pollfd awaited{.fd = process.get(), .events = POLLIN, .revents = 0};
    ::poll(&awaited, 1, static_cast<int>(timeToLook(process, deadline).count()));
  }
}

std::string describeStatus(int status) {
  if (!WIFSIGNALED(status)) return "exit code " + std::to_string(WEXITSTATUS(status));
  const char* const name = ::sigdescr_np(WTERMSIG(status));
  return "signal " + std::to_string(WTERMSIG(status)) +
         (name == nullptr ? "" : std::string(" (") + name + ")");
}

std::filesystem::path siblingProgram(const std::string& name) {
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) {
    throw std::system_error(error,
                            "cannot look for \"" + name +
                                "\" beside this program, since /proc/self/exe cannot be read (is /proc "
                                "mounted?)");
  }
  return self.parent_path() / name;
}

}  // namespace qor::processes
