#include "bench/load/Run.h"

#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <future>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "bench/PrivateEndpoint.h"
#include "bench/load/Ends.h"
#include "runtime/processes/ChildProcess.h"

extern char** environ;

namespace qor::bench {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds patience{60};
/// The engine's end of the line, which it inherits.
constexpr int lineDescriptor = 3;

std::string toText(const LoadCase& load) {
  std::ostringstream text;
  text << static_cast<int>(load.channel) << ' ' << static_cast<int>(load.library) << ' '
       << load.withParameters << ' ' << load.messagesPerList << ' ' << load.messages;
  return text.str();
}

LoadCase fromText(const std::string& text) {
  std::istringstream in(text);
  LoadCase load;
  int channel = 0;
  int library = 0;
  in >> channel >> library >> load.withParameters >> load.messagesPerList >> load.messages;
  if (!in) throw std::runtime_error("no load: \"" + text + "\"");
  load.channel = static_cast<Channel>(channel);
  load.library = static_cast<Library>(library);
  return load;
}

long residentKibibytes(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string word; status >> word;) {
    if (word != "VmRSS:") continue;
    long kibibytes = 0;
    status >> kibibytes;
    return kibibytes;
  }
  throw std::runtime_error("the other process has gone");
}

/// What the two processes tell each other aside from the messages: credits, and the result.
class Line {
 public:
  explicit Line(int descriptor) : descriptor_(descriptor) {
    const timeval timeOut{.tv_sec = patience.count(), .tv_usec = 0};
    ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &timeOut, sizeof timeOut);
  }
  ~Line() { ::close(descriptor_); }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  /// False when the other process has gone.
  bool give(const void* bytes, std::size_t count) const {
    return ::send(descriptor_, bytes, count, MSG_NOSIGNAL) == static_cast<ssize_t>(count);
  }
  void take(void* bytes, std::size_t count) const {
    if (::recv(descriptor_, bytes, count, MSG_WAITALL) == static_cast<ssize_t>(count)) return;
    throw std::runtime_error("the other process says nothing any more: " +
                             std::system_category().message(errno));
  }

 private:
  const int descriptor_;
};

void send(const LoadCase& load, const socket::SocketEndpoint& endpoint, const Line& line) {
  const auto sender = makeSender(load, endpoint);
  std::size_t credited = 0;
  const auto awaitCredit = [&] {
    char credit = 0;
    line.take(&credit, 1);
    credited += load.messagesPerCredit();
  };
  for (std::size_t sent = 0; sent < load.total(); sent += load.messagesPerList) {
    while (sent - credited >= load.window()) awaitCredit();
    sender->push(sent);
  }
  while (credited < load.total()) awaitCredit();
}

LoadResult receive(const LoadCase& load, const socket::SocketEndpoint& endpoint, const Line& line,
                   pid_t senderProcess) {
  LoadResult result;
  Clock::time_point start;
  const auto lookAtMemory = [&] {
    return std::array{residentKibibytes(senderProcess), residentKibibytes(::getpid())};
  };
  std::promise<void> allArrived;
  std::atomic<std::size_t> progress{0};
  const auto arrived = [&](std::size_t id, bool hasParameters) {
    if (id != result.received % distinctIds || hasParameters != load.withParameters) ++result.wrong;
    ++result.received;
    if (result.received == load.warmUp()) {
      result.before = lookAtMemory();
      start = Clock::now();
    } else if (result.received == load.total()) {
      result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
      result.after = lookAtMemory();
    }
    if (result.received % load.messagesPerCredit() != 0) return;
    progress = result.received;
    const char credit = 0;
    // A sender that has gone is told by what does not come any more.
    line.give(&credit, 1);
    if (result.received == load.total()) allArrived.set_value();
  };
  auto future = allArrived.get_future();
  const auto receiver = makeReceiver(load, endpoint, arrived);
  for (std::size_t seen = 0; future.wait_for(patience) != std::future_status::ready; seen = progress) {
    if (seen == progress) throw std::runtime_error(load.name() + ": nothing comes any more");
  }
  return result;
}

/// The engine's process. It is ended, should it still run, and reaped by the destructor.
class Engine {
 public:
  Engine(const LoadCase& load, const std::string& endpoint, int line) {
    std::string program = "/proc/self/exe";
    std::string argument = engineArgument;
    std::string loadText = toText(load);
    std::string endpointText = endpoint;
    std::vector<char*> arguments{program.data(), argument.data(), loadText.data(), endpointText.data(),
                                 nullptr};
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, line, lineDescriptor);
    const int error = ::posix_spawn(&process_, program.c_str(), &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
      throw std::system_error(error, std::system_category(), "cannot start the engine's process");
  }
  ~Engine() {
    if (process_ == 0) return;
    ::kill(process_, SIGKILL);
    processes::waitForEnd(process_, patience);
  }
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  pid_t process() const { return process_; }
  void waitForItsEnd() {
    const auto status = processes::waitForEnd(process_, patience);
    if (!status) throw std::runtime_error("the engine's process does not end");
    process_ = 0;
    if (*status != 0) throw std::runtime_error("the engine's process has failed");
  }

 private:
  pid_t process_ = 0;
};

/// Commands go from the host to the engine, notifications the other way.
bool hostSends(const LoadCase& load) { return load.channel == Channel::Commands; }

}  // namespace

LoadResult run(const LoadCase& load) {
  const PrivateEndpoint endpoint;
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::system_category(), "cannot make a line between two processes");
  }
  const Line line(ends[0]);
  auto theirEnd = std::make_unique<Line>(ends[1]);
  Engine engine(load, endpoint.text(), ends[1]);
  theirEnd.reset();
  LoadResult result;
  if (hostSends(load)) {
    send(load, endpoint.endpoint(), line);
    line.take(&result, sizeof result);
  } else {
    result = receive(load, endpoint.endpoint(), line, engine.process());
  }
  engine.waitForItsEnd();
  return result;
}

int beTheEngine(const std::string& loadText, const std::string& endpointText) {
  const LoadCase load = fromText(loadText);
  const auto endpoint = socket::SocketEndpoint::FromString(endpointText);
  const Line line(lineDescriptor);
  if (hostSends(load)) {
    const LoadResult result = receive(load, endpoint, line, ::getppid());
    line.give(&result, sizeof result);
  } else {
    send(load, endpoint, line);
  }
  return EXIT_SUCCESS;
}

}  // namespace qor::bench
