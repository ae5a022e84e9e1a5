#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CommandAndNotification.pb.h"
#include "TcpCommandProcessorFrontEnd.h"
#include "runtime/tamb/CommandMessage.h"
#include "tests/unit/multiprocess/SendingTest.h"

namespace qor::multiprocess_communication {

/// A command that writes down what it is asked. One thread at a time.
class WatchedCommand : public tamb::CommandMessage {
 public:
  using CommandMessage::CommandMessage;

  /// Called with the name of each operation before it returns.
  std::function<void(const std::string& operation)> whenAsked;

  const std::vector<std::string>& asked() const { return asked_; }

  std::shared_ptr<const tamb::IParametersCollectionInstance> GetCommandArgs() const override {
    note("GetCommandArgs");
    return CommandMessage::GetCommandArgs();
  }
  const tamb::MediaTime& GetTime() const override {
    note("GetTime");
    return CommandMessage::GetTime();
  }
  const std::string& GetCommandName() const override {
    note("GetCommandName");
    return CommandMessage::GetCommandName();
  }
  unsigned int GetCommandId() const override {
    note("GetCommandId");
    return CommandMessage::GetCommandId();
  }
  const std::string& GetWorkflowManagerId() const override {
    note("GetWorkflowManagerId");
    return CommandMessage::GetWorkflowManagerId();
  }
  unsigned int GetEngineId() const override {
    note("GetEngineId");
    return CommandMessage::GetEngineId();
  }
  const std::string& GetStepId() const override {
    note("GetStepId");
    return CommandMessage::GetStepId();
  }

 private:
  void note(const char* operation) const {
    asked_.emplace_back(operation);
    if (whenAsked) whenAsked(operation);
  }

  mutable std::vector<std::string> asked_;
};

/// The sending half of the command channel.
struct CommandSending {
  using Sender = TcpCommandProcessorFrontEnd;
  using Item = std::shared_ptr<const tamb::ICommandMessage>;
  using Batch = std::vector<Item>;
  using Fields = tamb::CommandFields;
  using Message = tamb::CommandMessage;
  using Watched = WatchedCommand;
  using List = proto::CommandMessageList;
  using Wire = proto::CommandMessage;

  static constexpr const char* socketName = "TcpCommandProcessorFrontEndCommand";
  static constexpr const char* address = "inproc://commands";
  static constexpr const char* source = "src/TcpCommandProcessorFrontEnd";
  static constexpr const char* header = "TcpCommandProcessorFrontEnd";
  static constexpr Refusal nullItem{"NULL command passed to the command processor", isNotFalse, 52};
  static constexpr Refusal badManager{"Bad workflow manager id in command message", isNotTrue, 58};
  static constexpr Refusal badEngine{"Bad engine id in command message", isNotTrue, 64};

  static void open(std::optional<Sender>& sender, const std::string& manager, unsigned int engine,
                   const socket::SocketEndpoint& endpoint) {
    sender.emplace();
    sender->SetWorkflowManagerId(manager);
    sender->SetEngineId(engine);
    sender->connectEndpoint(endpoint);
  }
  static void push(Sender& sender, Batch batch) { sender.PushCommands(std::move(batch)); }
  static void pushOne(Sender& sender, Item item) { sender.PushCommand(std::move(item)); }
  static Fields fields(const std::string& name) { return {.commandName = name, .stepId = "step of " + name}; }

  static auto& parameters(Fields& fields) { return fields.commandArgs; }
  static auto& name(Fields& fields) { return fields.commandName; }
  static const auto& time(const Wire& wire) { return wire.mediatime(); }
  static const auto& name(const Wire& wire) { return wire.commandname(); }
  static const auto& step(const Wire& wire) { return wire.stepid(); }
  static bool hasParameters(const Wire& wire) { return wire.has_commandargs(); }
  static const auto& parameters(const Wire& wire) { return wire.commandargs(); }

  /// What a push asks each command for.
  static std::vector<std::string> operations() {
    return {"GetCommandArgs",       "GetTime",     "GetCommandName", "GetCommandId",
            "GetWorkflowManagerId", "GetEngineId", "GetStepId"};
  }

  /// A subclass that sees the batches itself.
  class Intercepting : public Sender {
   public:
    explicit Intercepting(const socket::SocketEndpoint& endpoint) { connectEndpoint(endpoint); }
    std::vector<Batch> batches;
    void PushCommands(Batch commands) override { batches.push_back(std::move(commands)); }
  };
};

using CommandSendingTest = SendingTest<CommandSending>;

}  // namespace qor::multiprocess_communication
