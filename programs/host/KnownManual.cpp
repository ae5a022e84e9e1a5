#include "programs/host/KnownManual.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

#include "hosting/EngineRegistry.h"
#include "runtime/base/Deadline.h"
#include "runtime/base/FileDescriptor.h"
#include "runtime/console/OneLine.h"
#include "runtime/processes/ChildProcess.h"
#include "runtime/processes/Pipe.h"

namespace qor::programs {

namespace {

using engines::EngineManual;
using engines::KeyType;
using nlohmann::json;

constexpr const char* media = "media";
constexpr std::chrono::seconds timeToLoad{5};
constexpr std::chrono::seconds timeToEnd{1};
/// Limit for a manual, in bytes. The media engine needs 9 000.
constexpr std::size_t longestManual = 1'000'000;

/// The child's life. What a library prints meanwhile must not be among our own output.
[[noreturn]] void writeManual(const hosting::RegisteredEngine& engine, int descriptor) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) ::dup2(nowhere, stream);
  try {
    const std::string manual = engines::manualJson(*hosting::manualOf(engine));
    for (std::string_view rest = manual; !rest.empty();) {
      const auto written = ::write(descriptor, rest.data(), rest.size());
      if (written <= 0) break;
      rest.remove_prefix(static_cast<std::size_t>(written));
    }
  } catch (...) {
    // The parent reads no manual, and assumes one.
  }
  std::_Exit(EXIT_SUCCESS);
}

/// Reads until the end of the stream or the deadline.
std::string readUntil(base::Deadline deadline, int descriptor) {
  std::string text;
  std::array<char, 4096> piece{};
  while (text.size() < longestManual) {
    pollfd awaited{.fd = descriptor, .events = POLLIN, .revents = 0};
    if (::poll(&awaited, 1, base::pollTimeOut(deadline)) != 1) break;
    const auto count = ::read(descriptor, piece.data(), piece.size());
    if (count <= 0) break;
    text.append(piece.data(), static_cast<std::size_t>(count));
  }
  return text;
}

/// Throws std::runtime_error if no manual can be read.
EngineManual manualInAnotherProcess(const hosting::RegisteredEngine& engine) {
  processes::Pipe pipe;
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("no process can be started");
  if (child == 0) writeManual(engine, pipe.write.get());
  pipe.write.close();
  const std::string text = readUntil(base::Deadline::clock::now() + timeToLoad, pipe.read.get());
  ::kill(child, SIGKILL);
  processes::waitForEnd(child, timeToEnd);
  return engines::manualFrom(text);
}

}  // namespace

std::string engineNameIn(const json& description) {
  const auto name = description.find("engine");
  if (name == description.end()) return media;
  if (!name->is_string()) {
    throw std::runtime_error(console::oneLine("workflow: engine: \"engine\" is " +
                                              name->dump(-1, ' ', false, json::error_handler_t::replace) +
                                              "; expected a text"));
  }
  return name->get<std::string>();
}

EngineManual assumedManual(const std::string& engine) {
  if (engine != media) return {.name = engine, .step = engine};
  return {.name = media,
          .step = media,
          .keys = {{.name = "input", .type = KeyType::Location},
                   {.name = "output", .type = KeyType::Location},
                   {.name = startPausedKey, .type = KeyType::Flag}},
          .commands = {{.name = resumeCommand}}};
}

EngineManual knownManual(const std::string& engine, const std::vector<std::filesystem::path>& engineFolders) {
  try {
    const hosting::EngineRegistry registry(hosting::registryFolders(engineFolders));
    const auto* const registered = registry.find(engine);
    if (registered != nullptr && !registered->library.empty()) return manualInAnotherProcess(*registered);
    if (registered != nullptr) return hosting::manualOf(*registered).value_or(assumedManual(engine));
  } catch (const std::exception&) {
    // The program that starts the engine reports the error.
  }
  return assumedManual(engine);
}

bool canStartPaused(const EngineManual& manual) {
  return std::ranges::any_of(
             manual.keys,
             [](const auto& key) { return key.name == startPausedKey && key.type == KeyType::Flag; }) &&
         std::ranges::any_of(manual.commands, [](const auto& each) { return each.name == resumeCommand; });
}

}  // namespace qor::programs
