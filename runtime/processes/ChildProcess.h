#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "runtime/processes/Pipe.h"

namespace qor::processes {

/// A program in a session of its own, so that Ctrl-C of the terminal does not reach it. Lines that it writes
/// can be read here, and its standard error stream is ours. It is not ended with this object: whoever starts
/// it decides what becomes of it. One thread.
class ChildProcess {
 public:
  /// The descriptor of the program's end of a line channel.
  static constexpr int lineDescriptor = 3;

  /// Where the program writes the lines that can be read here.
  enum class Lines {
    OnStandardOutput,
    /// On `lineDescriptor`, which the program has to be told of. What it, or a library of its, prints to its
    /// standard output goes to our standard error stream.
    OnLineDescriptor,
  };

  /// Starts it with `input` on its standard input. Throws std::system_error, which names the program.
  ChildProcess(const std::filesystem::path& program, std::vector<std::string> arguments,
               const std::string& input, Lines lines = Lines::OnStandardOutput);
  ChildProcess(ChildProcess&&) = default;
  ChildProcess& operator=(ChildProcess&&) = default;

  pid_t pid() const { return pid_; }
  /// The next of its lines; none when it has not come in time, or the lines or the program have ended.
  std::optional<std::string> readLine(std::chrono::milliseconds time);
  /// Its status once it has ended, as waitpid has it; none while it runs. Does not wait.
  std::optional<int> reap();
  /// Waits at most so long for its end.
  std::optional<int> waitForEnd(std::chrono::milliseconds time);
  /// Nothing once it has been reaped.
  void signal(int number) const;
  /// Asks it to end, kills it when it has not after `grace`, and reaps it: at the latest 10 s after that.
  void end(std::chrono::milliseconds grace);

 private:
  pid_t pid_ = 0;
  std::optional<int> status_;
  LineReader output_{base::FileDescriptor()};
};

/// Waits at most so long for the end of a child of this process, and reaps it: its status as waitpid has it.
std::optional<int> waitForEnd(pid_t child, std::chrono::milliseconds time);

/// "signal 11 (Segmentation fault)" or "exit code 3", of a status as waitpid has it.
std::string describeStatus(int status);

/// The program of that name beside the running one. Throws std::system_error where there is no /proc.
std::filesystem::path siblingProgram(const std::string& name);

}  // namespace qor::processes
