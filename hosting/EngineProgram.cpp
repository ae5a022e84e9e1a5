#include "hosting/EngineProgram.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <system_error>
#include <vector>

#include "runtime/base/FileDescriptor.h"
#include "runtime/console/LogLine.h"
#include "runtime/processes/ChildProcess.h"

namespace qor::hosting {

namespace {

/// Where an engine program reports: the first one behind the standard streams, as for each child that
/// reports.
constexpr int reportDescriptor = processes::ChildProcess::lineDescriptor;

/// A file without a name: unlike a pipe, it takes any text at once.
base::FileDescriptor fileWith(const std::string& text) {
  base::FileDescriptor file(::memfd_create("description", MFD_CLOEXEC));
  if (!file.isOpen() || ::write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
      ::lseek(file.get(), 0, SEEK_SET) != 0) {
    throw std::system_error(errno, std::system_category(),
                            "cannot pass the description to the engine program");
  }
  return file;
}

/// As a shell starts programs.
void restoreSignals() {
  for (const int signal : {SIGPIPE, SIGCHLD}) std::signal(signal, SIG_DFL);
}

/// Does not return if it can be helped.
void execute(const EngineProgram& program, const EngineOptions& options, int reports) {
  const auto input = fileWith(inputFor(options));
  std::vector<std::string> words{program.file.string()};
  words.insert(words.end(), program.arguments.begin(), program.arguments.end());
  const auto more = argumentsFor(options);
  words.insert(words.end(), more.begin(), more.end());
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  // There is one thread, and nobody reads the environment meanwhile.
  ::setenv(supervisorVariable, std::to_string(::getppid()).c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
  ::setenv(logOriginVariable, console::logOriginWith("").c_str(), 1);    // NOLINT(concurrency-mt-unsafe)
  restoreSignals();
  ::dup2(input.get(), STDIN_FILENO);
  // Closed by a successful start alone: a failed one is still to be reported on it.
  const base::FileDescriptor kept(::fcntl(reports, F_DUPFD_CLOEXEC, reportDescriptor + 1));
  ::dup2(kept.get(), reportDescriptor);
  // Those above were opened by this process, which marks its own, or by whoever started it.
  ::close_range(reportDescriptor + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  ::execv(program.file.c_str(), pointers.data());
}

}  // namespace

bool isSupervisedProgram() {
  const char* const supervisor = std::getenv(supervisorVariable);  // NOLINT(concurrency-mt-unsafe)
  return supervisor != nullptr && supervisor == std::to_string(::getppid());
}

int becomeProgram(const EngineProgram& program, EngineOptions options, const EngineReporter& parent) {
  options.readyDescriptor = reportDescriptor;
  try {
    execute(program, options, parent.descriptor());
    throw std::system_error(errno, std::system_category(), "cannot run \"" + program.file.string() + '"');
  } catch (const std::exception& error) {
    parent.report({.event = EngineEvent::Failed, .reason = error.what()});
    return EXIT_FAILURE;
  }
}

}  // namespace qor::hosting
