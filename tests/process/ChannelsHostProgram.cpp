// A host process that commands an engine in another process and receives its notifications: executes each
// line of the standard input, and prints the result of each call, "NAME returned after MS" or "NAME threw
// after MS: TEXT". Each call runs on its own thread; the test waits for one before it requests the next. Log
// records go to the standard error stream.
//
//   channels_host_peer
//
//   identify IDS             the workflowManagerId and the engineId of the engine, as an object
//   bind ENDPOINT            binds the command channel; prints "bound ENDPOINT" with the reserved port
//   push COMMANDS            pushes an array of commands as one batch
//   push-each COMMANDS       pushes them one after the other
//   subscribe ENDPOINT       starts to receive notifications; prints each as "notification NOTIFICATION"
//   listen-to-response ENGINE_ID COMMAND_ID
//                            also prints the answers to that command as "response NOTIFICATION"
//   listen-to-step ENGINE_ID STEP_ID
//                            also prints that step's notifications as "step NOTIFICATION"
//   destroy                  destroys both ends
//   quit                     ends the program, and both ends first
//
// JsonMessages.h documents the format of commands and notifications.

#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "TcpCommandProcessorFrontEnd.h"
#include "TcpNotificationHubFrontEnd.h"
#include "tests/process/DrivenProgram.h"
#include "tests/process/JsonMessages.h"

namespace {

using qor::multiprocess_communication::TcpCommandProcessorFrontEnd;
using qor::multiprocess_communication::TcpNotificationHubFrontEnd;
using qor::socket::SocketEndpoint;

/// Prints each notification that it receives, under a name.
class SayingSubscriber : public tamb::INotificationCallback {
 public:
  SayingSubscriber(qor::test::DrivenProgram& program, std::string name)
      : program_(program), name_(std::move(name)) {}
  void OnNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override {
    program_.say(name_ + ' ' + qor::test::lineOf(qor::test::describe(*notification)));
  }

 private:
  qor::test::DrivenProgram& program_;
  const std::string name_;
};

class Host {
 public:
  Host() {
    auto [hubFrontEnd, hubBackEnd] = tamb::CreateNotificationHub();
    notifications_ =
        std::make_unique<TcpNotificationHubFrontEnd>(std::move(hubFrontEnd), std::move(hubBackEnd));
    notifications_->Subscribe(subscriber("notification"));
  }
  ~Host() { program_.joinCalls(); }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  void obey(const std::string& line) {
    program_.obey(line, [this](const std::string& name, const std::string& text) { call(name, text); });
  }

 private:
  void call(const std::string& name, const std::string& text) {
    if (name == "identify") return identify(qor::test::Json::parse(text));
    if (name == "bind") return bind(SocketEndpoint::FromString(text).withReservedPort());
    if (name == "push") return commands_->PushCommands(qor::test::allFrom(text, qor::test::commandFrom));
    if (name == "push-each") {
      for (auto& command : qor::test::allFrom(text, qor::test::commandFrom)) {
        commands_->PushCommand(std::move(command));
      }
      return;
    }
    if (name == "subscribe") return notifications_->startSubscriptionThread(SocketEndpoint::FromString(text));
    if (name == "listen-to-response" || name == "listen-to-step") return listen(name, text);
    if (name == "destroy") {
      commands_.reset();
      notifications_.reset();
      return;
    }
    throw std::runtime_error("unknown command");
  }

  void identify(const qor::test::Json& ids) {
    commands_->SetWorkflowManagerId(ids.at("workflowManagerId"));
    commands_->SetEngineId(ids.at("engineId"));
    notifications_->SetWorkflowManagerId(ids.at("workflowManagerId"));
    notifications_->SetEngineId(ids.at("engineId"));
  }

  void bind(const SocketEndpoint& endpoint) {
    commands_->connectEndpoint(endpoint);
    program_.say("bound " + endpoint.toString(qor::socket::Protocol::Plain));
  }

  void listen(const std::string& name, const std::string& text) {
    std::istringstream words(text);
    unsigned int engineId = 0;
    words >> engineId;
    if (name == "listen-to-response") {
      unsigned int commandId = 0;
      words >> commandId;
      notifications_->SubscribeToCommandResponse(engineId, commandId, subscriber("response"));
    } else {
      std::string stepId;
      words >> stepId;
      notifications_->SubscribeToStep(engineId, stepId, subscriber("step"));
    }
  }

  std::shared_ptr<SayingSubscriber> subscriber(const std::string& name) {
    return std::make_shared<SayingSubscriber>(program_, name);
  }

  qor::test::DrivenProgram program_;  ///< destroyed last: the ends report to it
  std::unique_ptr<TcpCommandProcessorFrontEnd> commands_ = std::make_unique<TcpCommandProcessorFrontEnd>();
  std::unique_ptr<TcpNotificationHubFrontEnd> notifications_;
};

}  // namespace

int main() {
  try {
    Host host;
    for (std::string line; qor::test::DrivenProgram::nextLine(line);) host.obey(line);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "channels_host_peer: " << error.what() << '\n';
    return 1;
  }
}
