// An engine process that receives commands and publishes notifications for a test: executes each line of the
// standard input, and prints the result of each call, "NAME returned after MS" or "NAME threw after MS:
// TEXT". Each call runs on its own thread; the test waits for one before it requests the next. Log records go
// to the standard error stream.
//
//   channels_engine_peer
//
//   subscribe ENDPOINT       starts to receive commands; prints each as "command COMMAND"
//   bind ENDPOINT IDS        binds the notification channel, for the workflowManagerId and the engineId of an
//                            object; prints "bound ENDPOINT" with the reserved port
//   push NOTIFICATIONS       publishes an array of notifications as one batch
//   push-each NOTIFICATIONS  publishes them one after the other
//   answer                   from now on, every command is answered with a notification of its time, its
//                            arguments and its ids, whose line is the command's name; nothing else may be
//                            published meanwhile
//   destroy                  destroys both ends
//   quit                     ends the program, and both ends first
//
// JsonMessages.h documents the format of commands and notifications.

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "TcpCommandProcessorBackEnd.h"
#include "TcpNotificationHubBackEnd.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tests/process/DrivenProgram.h"
#include "tests/process/JsonMessages.h"
#include "tests/support/RecordingCommandProcessor.h"

namespace {

using qor::multiprocess_communication::TcpCommandProcessorBackEnd;
using qor::multiprocess_communication::TcpNotificationHubBackEnd;
using qor::socket::SocketEndpoint;

class Engine {
 public:
  Engine() {
    processor_->onPush = [this](const tamb::ICommandMessage& command) {
      program_.say("command " + qor::test::lineOf(qor::test::describe(command)));
      if (answers_) answer(command);
    };
  }
  ~Engine() { program_.joinCalls(); }
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  void obey(const std::string& line) {
    program_.obey(line, [this](const std::string& name, const std::string& text) { call(name, text); });
  }

 private:
  void call(const std::string& name, const std::string& text) {
    if (name == "subscribe") {
      commands_ =
          std::make_unique<TcpCommandProcessorBackEnd>(processor_, nullptr, SocketEndpoint::FromString(text));
      return;
    }
    if (name == "bind") return bind(text);
    if (name == "push") {
      return notifications_->PushNotifications(qor::test::allFrom(text, qor::test::notificationFrom));
    }
    if (name == "push-each") {
      for (auto& notification : qor::test::allFrom(text, qor::test::notificationFrom)) {
        notifications_->PushNotification(std::move(notification));
      }
      return;
    }
    if (name == "answer") {
      answers_ = true;
      return;
    }
    if (name == "destroy") {
      commands_.reset();
      notifications_.reset();
      return;
    }
    throw std::runtime_error("unknown command");
  }

  void bind(const std::string& text) {
    const std::size_t blank = text.find(' ');
    const SocketEndpoint endpoint = SocketEndpoint::FromString(text.substr(0, blank)).withReservedPort();
    const auto ids = qor::test::Json::parse(text.substr(blank + 1));
    notifications_ = std::make_unique<TcpNotificationHubBackEnd>(
        ids.at("workflowManagerId").get<std::string>(), ids.at("engineId").get<unsigned long>(), endpoint);
    program_.say("bound " + endpoint.toString(qor::socket::Protocol::Plain));
  }

  void answer(const tamb::ICommandMessage& command) {
    tamb::NotificationFields fields;
    fields.time = command.GetTime();
    fields.stepId = command.GetStepId();
    fields.notificationLine = command.GetCommandName();
    fields.notificationObject = command.GetCommandArgs();
    fields.commandId = command.GetCommandId();
    fields.workflowManagerId = command.GetWorkflowManagerId();
    fields.engineId = command.GetEngineId();
    notifications_->PushNotification(std::make_shared<tamb::NotificationMessage>(std::move(fields)));
  }

  qor::test::DrivenProgram program_;  ///< destroyed last: the ends report to it
  std::atomic<bool> answers_{false};
  std::shared_ptr<qor::test::RecordingCommandProcessor> processor_ =
      std::make_shared<qor::test::RecordingCommandProcessor>();
  std::unique_ptr<TcpNotificationHubBackEnd> notifications_;  ///< outlives the commands that it answers
  std::unique_ptr<TcpCommandProcessorBackEnd> commands_;
};

}  // namespace

int main() {
  try {
    Engine engine;
    for (std::string line; qor::test::DrivenProgram::nextLine(line);) engine.obey(line);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "channels_engine_peer: " << error.what() << '\n';
    return 1;
  }
}
