#include "runtime/console/CommandLine.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cctype>
#include <csignal>
#include <string>

#include "runtime/tamb/EscapedText.h"

namespace qor::console {

namespace {

/// One line, like every message of a program.
std::string failureMessage(const CLI::App* app, const CLI::Error& error) {
  std::string what = tamb::EscapedText(error.what());
  if (!what.empty()) what.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(what.front())));
  return app->get_name() + ": " + what + "; see --help\n";
}

/// What is opened next would otherwise take the number of a stream that is closed, and be given what is
/// printed. Reading and writing fail as before.
void occupyStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) >= 0) continue;
    // The lowest number that is free.
    [[maybe_unused]] const int same = ::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace

std::optional<int> parseCommandLine(CLI::App& app, int argumentCount, char** arguments) {
  app.set_version_flag("--version", QOR_VERSION);
  app.failure_message(failureMessage);
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  occupyStandardStreams();
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGCHLD, SIG_DFL);
  rlimit descriptors{};
  ::getrlimit(RLIMIT_NOFILE, &descriptors);
  descriptors.rlim_cur = descriptors.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &descriptors);
  return std::nullopt;
}

}  // namespace qor::console
