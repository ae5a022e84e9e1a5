// An engine process whose engine a test controls: executes each line of the standard input, and prints each
// event to the standard output. Log records go to the standard error stream.
//
//   engine_back_end_peer REQUEST_ENDPOINT STATUS_ENDPOINT
//
//   finish               ends the engine's run
//   run-throws TEXT      ends the engine's run with an exception
//   ping-takes MS        from now on a ping takes that long, or until "release"
//   ping-throws TEXT     from now on a ping throws; "ping-throws-unknown" throws a value that is not a
//   std::exception stop-throws TEXT     from now on a request to stop throws release              ends
//   current and future pings wait                 waits until the front end has disconnected destroy destroys
//   the back end quit                 ends the program, and the engine's run first
//
// Events: "listening REQUEST_ENDPOINT STATUS_ENDPOINT", with the reserved ports; "from now on
// COMMAND", once it is in effect; "engine runs", "engine ran", "pinged MS", "stop requested"; "wait returned
// after MS", "destroy returned after MS".

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>

#include "TcpEngineBackEnd.h"
#include "tests/process/DrivenProgram.h"
#include "tests/support/FakeEngine.h"

namespace {

using qor::multiprocess_communication::TcpEngineBackEnd;
using qor::socket::SocketEndpoint;

/// The engine's behaviour. Any thread.
class Script {
 public:
  void pingTakes(std::chrono::milliseconds time) {
    const std::lock_guard lock(mutex_);
    pingTime_ = time;
  }
  void pingThrows(const std::string& text) {
    const std::lock_guard lock(mutex_);
    pingFailure_ = text;
  }
  void pingThrowsUnknown() {
    const std::lock_guard lock(mutex_);
    isPingFailureUnknown_ = true;
  }
  void stopThrows(const std::string& text) {
    const std::lock_guard lock(mutex_);
    stopFailure_ = text;
  }
  void release() {
    const std::lock_guard lock(mutex_);
    isReleased_ = true;
    changed_.notify_all();
  }
  void finish(const std::string& failure = "") {
    const std::lock_guard lock(mutex_);
    isFinished_ = true;
    if (!failure.empty()) runFailure_ = failure;
    changed_.notify_all();
  }

  void run() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return isFinished_; });
    throwIfToldTo(runFailure_);
  }
  void ping() {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, pingTime_, [this] { return isReleased_; });
    if (isPingFailureUnknown_) throw 42;
    throwIfToldTo(pingFailure_);
  }
  void requestStop() {
    {
      const std::lock_guard lock(mutex_);
      throwIfToldTo(stopFailure_);
    }
    finish();
  }

 private:
  static void throwIfToldTo(const std::string& failure) {
    if (!failure.empty()) throw std::runtime_error(failure);
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::chrono::milliseconds pingTime_{0};
  std::string pingFailure_;
  bool isPingFailureUnknown_ = false;
  std::string stopFailure_;
  std::string runFailure_;
  bool isReleased_ = false;
  bool isFinished_ = false;
};

std::shared_ptr<qor::test::FakeEngine> engineThatFollows(Script& script, qor::test::DrivenProgram& program) {
  auto engine = std::make_shared<qor::test::FakeEngine>();
  engine->onRun = [&] {
    program.say("engine runs");
    script.run();
    program.say("engine ran");
  };
  engine->onPing = [&](unsigned int timeOut) {
    program.say("pinged " + std::to_string(timeOut));
    script.ping();
  };
  engine->onRequestStop = [&] {
    program.say("stop requested");
    script.requestStop();
  };
  return engine;
}

SocketEndpoint endpointOf(const char* text) { return SocketEndpoint::FromString(text).withReservedPort(); }

void serve(const SocketEndpoint& requestEndpoint, const SocketEndpoint& statusEndpoint) {
  Script script;
  qor::test::DrivenProgram program;
  auto backEnd =
      std::make_unique<TcpEngineBackEnd>(engineThatFollows(script, program), requestEndpoint, statusEndpoint);
  program.say("listening " + requestEndpoint.toString(qor::socket::Protocol::Plain) + ' ' +
              statusEndpoint.toString(qor::socket::Protocol::Plain));
  for (std::string line; qor::test::DrivenProgram::nextLine(line);) {
    std::istringstream words(line);
    std::string command;
    std::string text;
    words >> command;
    std::getline(words >> std::ws, text);
    if (command == "finish") script.finish();
    if (command == "run-throws") script.finish(text);
    if (command == "ping-takes") script.pingTakes(std::chrono::milliseconds(std::stoul(text)));
    if (command == "ping-throws") script.pingThrows(text);
    if (command == "ping-throws-unknown") script.pingThrowsUnknown();
    if (command == "stop-throws") script.stopThrows(text);
    if (command.starts_with("ping-") || command.starts_with("stop-")) program.say("from now on " + command);
    if (command == "release") script.release();
    if (command == "wait") program.start("wait", [&backEnd] { backEnd->waitForFrontEndTermination(); });
    if (command == "destroy") program.start("destroy", [&backEnd] { backEnd.reset(); });
  }
  script.release();
  script.finish();
  program.joinCalls();
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount != 3) {
    std::cerr << "usage: engine_back_end_peer REQUEST_ENDPOINT STATUS_ENDPOINT\n";
    return 2;
  }
  try {
    serve(endpointOf(arguments[1]), endpointOf(arguments[2]));
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "engine_back_end_peer: " << error.what() << '\n';
    return 1;
  }
}
