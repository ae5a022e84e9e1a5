#include "programs/support/CommandLine.h"

#include <sys/resource.h>

#include <csignal>

namespace qor::programs {

std::optional<int> parseCommandLine(CLI::App& app, int argumentCount, char** arguments) {
  app.set_version_flag("--version", QOR_VERSION);
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGCHLD, SIG_DFL);
  rlimit descriptors{};
  ::getrlimit(RLIMIT_NOFILE, &descriptors);
  descriptors.rlim_cur = descriptors.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &descriptors);
  return std::nullopt;
}

}  // namespace qor::programs
