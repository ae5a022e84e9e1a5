// The four hot paths of the channels, for callgrind, which counts instructions: the main thread pushes
// everything, then one other thread receives. Uses the in-process sockets, because the interaction of
// libzmq's threads differs from run to run.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "TcpCommandProcessorBackEnd.h"
#include "TcpCommandProcessorFrontEnd.h"
#include "TcpNotificationHubBackEnd.h"
#include "TcpNotificationHubFrontEnd.h"
#include "bench/FailuresOnly.h"
#include "bench/compare/Arrivals.h"
#include "bench/compare/MessagePool.h"
#include "bench/compare/Sinks.h"

namespace qor::bench {
namespace {

using namespace multiprocess_communication;

constexpr std::chrono::minutes patience{5};

/// Marks the receiving thread: callgrind's file of that thread contains this name.
[[gnu::noinline]] void receiveOnThisThread(const std::function<void()>& handle) { handle(); }

/// Waits for all messages of a run.
class Wait {
 public:
  explicit Wait(const Case& run) : run_(run), arrivals_(run, [] {}) {}

  void arrive(const Arrival& arrival) {
    receiveOnThisThread([&] { of_(arrival); });
    if (arrivals_.received() == run_.messages) done_.set_value();
  }
  void forAll() {
    if (done_.get_future().wait_for(patience) != std::future_status::ready) {
      throw std::runtime_error("nothing comes any more");
    }
    if (arrivals_.wrong() != 0) throw std::runtime_error("messages are wrong");
  }

 private:
  const Case run_;
  Arrivals arrivals_;
  Arrivals::OfEngine of_ = arrivals_.of(0);
  std::promise<void> done_;
};

void runCommands(const Case& run, const socket::SocketEndpoint& endpoint) {
  const MessagePool<tamb::ICommandMessage> commands(run, typicalCommand);
  TcpCommandProcessorFrontEnd frontEnd;
  frontEnd.SetWorkflowManagerId(workflowManagerId);
  frontEnd.SetEngineId(engineId);
  frontEnd.connectEndpoint(endpoint);
  for (std::size_t sent = 0; sent < run.messages; ++sent) frontEnd.PushCommands(commands.list(sent));
  Wait wait(run);
  const TcpCommandProcessorBackEnd backEnd(
      std::make_shared<CommandSink>([&](const Arrival& command) { wait.arrive(command); }), nullptr,
      endpoint);
  wait.forAll();
}

void runNotifications(const Case& run, const socket::SocketEndpoint& endpoint) {
  const MessagePool<tamb::INotificationMessage> notifications(run, typicalNotification);
  TcpNotificationHubBackEnd backEnd(workflowManagerId, engineId, endpoint);
  for (std::size_t sent = 0; sent < run.messages; ++sent) backEnd.PushNotifications(notifications.list(sent));
  Wait wait(run);
  TcpNotificationHubFrontEnd frontEnd(
      tamb::CreateNotificationHub().first,
      std::make_shared<NotificationSink>([&](const Arrival& notification) { wait.arrive(notification); }));
  frontEnd.startSubscriptionThread(endpoint);
  wait.forAll();
}

}  // namespace
}  // namespace qor::bench

int main(int argumentCount, char** arguments) {
  try {
    qor::bench::logFailuresOnly();
    if (argumentCount != 4) throw std::runtime_error("usage: hot_paths commands|notifications 0|5 MESSAGES");
    qor::bench::Case run;
    run.withParameters = std::string(arguments[2]) == "5";
    run.messages = std::stoul(arguments[3]);
    const auto endpoint = qor::socket::SocketEndpoint::FromString("inproc://hot-path");
    if (std::string(arguments[1]) == "commands") {
      qor::bench::runCommands(run, endpoint);
    } else {
      qor::bench::runNotifications(run, endpoint);
    }
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "hot_paths: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
