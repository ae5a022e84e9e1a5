#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "CommandAndNotification.pb.h"
#include "TcpCommandProcessorFrontEnd.h"
#include "runtime/inproc/Network.h"
#include "runtime/tamb/CommandMessage.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/CapturedLog.h"

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

/// A front end, and a subscriber that looks at what it sends. All of it happens on the test's own thread.
class CommandFrontEndTest : public ::testing::Test {
 public:
  ~CommandFrontEndTest() override { socket::inproc::reset(); }

 protected:
  using Operation = socket::inproc::Operation;
  using Failure = socket::inproc::Failure;
  using Command = std::shared_ptr<const tamb::ICommandMessage>;
  using Batch = std::vector<Command>;

  static constexpr const char* socketName = "TcpCommandProcessorFrontEndCommand";
  static constexpr const char* address = "inproc://commands";
  static constexpr const char* otherAddress = "inproc://other-commands";
  static constexpr const char* manager = "manager-17";
  static constexpr unsigned int engine = 7;

  void TearDown() override {
    // A front end that goes waits for whatever nobody has taken.
    if (frontEnd_ && !listener_.isOpen()) listen();
    frontEnd_.reset();
    listener_.close();
    EXPECT_TRUE(socket::inproc::sockets().empty());
  }

  /// A front end whose endpoint is bound.
  void connect(unsigned int engineId = engine, const std::string& managerId = manager) {
    construct(engineId, managerId);
    frontEnd_->connectEndpoint(endpoint());
  }
  void construct(unsigned int engineId = engine, const std::string& managerId = manager) {
    frontEnd_.emplace();
    frontEnd_->SetWorkflowManagerId(managerId);
    frontEnd_->SetEngineId(engineId);
  }
  /// From now on everything is taken in order.
  void listen(const std::string& where = address) {
    listener_.close();
    listener_.createAndConnect(socket::Protocol::Subscriber, socket::SocketEndpoint::FromString(where), 0);
  }
  static socket::SocketEndpoint endpoint(const std::string& where = address) {
    return socket::SocketEndpoint::FromString(where);
  }

  static tamb::CommandFields fields(const std::string& name = "a name") {
    return {.time = tamb::MediaTime(tamb::EditRate(25, 1), 3, nullptr),
            .commandName = name,
            .commandId = 5,
            .workflowManagerId = manager,
            .engineId = engine,
            .stepId = "step of " + name};
  }
  static Command command(const std::string& name = "a name") {
    return std::make_shared<tamb::CommandMessage>(fields(name));
  }
  static Command commandOf(const std::string& managerId, unsigned int engineId) {
    auto its = fields();
    its.workflowManagerId = managerId;
    its.engineId = engineId;
    return std::make_shared<tamb::CommandMessage>(its);
  }
  static Command commandWith(std::shared_ptr<const tamb::IParametersCollectionInstance> arguments,
                             const std::string& name = "a name") {
    auto its = fields(name);
    its.commandArgs = std::move(arguments);
    return std::make_shared<tamb::CommandMessage>(its);
  }
  /// Arguments of a type that does not travel.
  static std::shared_ptr<const tamb::IParametersCollectionInstance> floatArguments() {
    const auto prototype = tamb::CreateParametersCollectionPrototype();
    prototype->AddBoolKey("travels", true, "");
    prototype->AddFloatKey("does not", 1.5F, "");
    return tamb::CreateParametersCollectionInstance(prototype);
  }
  /// A command that alone makes a list of exactly that many bytes.
  static Command commandOfListSize(std::size_t size) {
    proto::CommandMessageList list;
    auto& message = *list.add_messages();
    auto its = fields();
    message.mutable_mediatime()->mutable_editrate()->set_numerator(25);
    message.mutable_mediatime()->mutable_editrate()->set_denominator(1);
    message.mutable_mediatime()->set_timenumber(3);
    message.set_commandname(std::string(size, 'x'));
    message.set_commandid(its.commandId);
    message.set_workflowmanagerid(its.workflowManagerId);
    message.set_engineid(its.engineId);
    message.set_stepid(its.stepId);
    while (list.ByteSizeLong() > size) message.mutable_commandname()->pop_back();
    if (list.ByteSizeLong() != size) throw std::logic_error("no list has exactly that size");
    its.commandName = message.commandname();
    return std::make_shared<tamb::CommandMessage>(its);
  }

  void push(Batch batch) { frontEnd_->PushCommands(std::move(batch)); }

  /// The next message that was sent; throws when there is none.
  proto::CommandMessageList next() {
    proto::CommandMessageList list;
    std::string errorText;
    if (listener_.poll(0, errorText) != 0) throw std::runtime_error("nothing was sent " + errorText);
    if (listener_.receiveProtoBuf(&list, 65'536) != 0) throw std::runtime_error("something else was sent");
    return list;
  }
  bool nothingWasSent() {
    std::string errorText;
    return listener_.poll(0, errorText) == 1;
  }
  /// The names of the commands in the next message.
  std::vector<std::string> nextNames() {
    std::vector<std::string> names;
    const auto list = next();
    for (const auto& message : list.messages()) names.push_back(message.commandname());
    return names;
  }

  const test::CapturedLog log_;
  socket::Socket listener_{"CommandListener", socket::ClosePolicy::Newest};
  std::optional<TcpCommandProcessorFrontEnd> frontEnd_;
};

}  // namespace qor::multiprocess_communication
