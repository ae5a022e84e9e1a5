#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "runtime/processes/Pipe.h"

namespace qor::processes {

/// A child process in its own session, out of reach of the terminal's Ctrl-C. Its lines can be read here; it
/// shares our standard error stream. The destructor does not end it: its owner does. One thread.
class ChildProcess {
 public:
  /// The program's descriptor for lines.
  static constexpr int lineDescriptor = 3;

  /// Where the program writes its lines.
  enum class Lines {
    OnStandardOutput,
    /// On `lineDescriptor`, which has to be passed to the program as an argument. Its standard output goes to
    /// our standard error stream.
    OnLineDescriptor,
  };

  /// Starts it with `input` on its standard input. Throws std::system_error, which names the program.
  ChildProcess(const std::filesystem::path& program, std::vector<std::string> arguments,
               const std::string& input, Lines lines = Lines::OnStandardOutput);
  ChildProcess(ChildProcess&&) = default;
  ChildProcess& operator=(ChildProcess&&) = default;

  pid_t pid() const { return pid_; }
  /// Reads the next line; none when it does not arrive in time, or when the output or the program has ended.
  std::optional<std::string> readLine(std::chrono::milliseconds time);
  /// Its wait status once it has exited; none while it runs. Does not wait.
  std::optional<int> reap();
  /// Waits at most that long for its exit.
  std::optional<int> waitForEnd(std::chrono::milliseconds time);
  /// Does nothing once it has been reaped.
  void signal(int number) const;
  /// Sends SIGTERM, after `grace` SIGKILL, and reaps it: at most 10 s later.
  void end(std::chrono::milliseconds grace);

 private:
  pid_t pid_ = 0;
  std::optional<int> status_;
  LineReader output_{base::FileDescriptor()};
};

/// Waits at most that long for the exit of a child of this process, and reaps it. Returns its wait status.
std::optional<int> waitForEnd(pid_t child, std::chrono::milliseconds time);

/// Describes a wait status: "signal 11 (Segmentation fault)" or "exit code 3".
std::string describeStatus(int status);

/// The program of that name in the folder of the running one. Throws std::system_error without /proc.
std::filesystem::path siblingProgram(const std::string& name);

}  // namespace qor::processes
