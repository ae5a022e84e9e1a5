#include "TcpCommandProcessorBackEnd.h"

#include <exception>
#include <stdexcept>
#include <utility>

namespace qor::multiprocess_communication {

namespace {

namespace ReportLine {
constexpr int failedCreatingSocket = 71;
constexpr int executeAllCommandsScheduledAt = 94;
constexpr int executeAllCommands = 106;
constexpr int eraseAllCommandsInStack = 118;
constexpr int eraseAllCommandsInStackBefore = 130;
constexpr int defineEngine = 142;
constexpr int invalidSocket = 158;
constexpr int invalidFrontEnd = 165;
constexpr int pollError = 203;
constexpr int failedPoll = 214;
constexpr int failedArguments = 249;
}  // namespace ReportLine

}  // namespace

TcpCommandProcessorBackEnd::TcpCommandMessage::TcpCommandMessage(
    const proto::CommandMessage& message,
    std::shared_ptr<const tamb::IParametersCollectionInstance> commandArgs)
    : workflowManagerId_(message.workflowmanagerid()),
      engineId_(static_cast<unsigned int>(message.engineid())),
      stepId_(message.stepid()),
      time_(Serializers::MediaTimeFromProtoBuf(message.mediatime())),
      commandName_(message.commandname()),
      commandId_(static_cast<unsigned int>(message.commandid())),
      commandArgs_(std::move(commandArgs)) {}

std::shared_ptr<const tamb::IParametersCollectionInstance>
TcpCommandProcessorBackEnd::TcpCommandMessage::GetCommandArgs() const {
  return commandArgs_;
}
const tamb::MediaTime& TcpCommandProcessorBackEnd::TcpCommandMessage::GetTime() const { return time_; }
const std::string& TcpCommandProcessorBackEnd::TcpCommandMessage::GetCommandName() const {
  return commandName_;
}
unsigned int TcpCommandProcessorBackEnd::TcpCommandMessage::GetCommandId() const { return commandId_; }
const std::string& TcpCommandProcessorBackEnd::TcpCommandMessage::GetWorkflowManagerId() const {
  return workflowManagerId_;
}
unsigned int TcpCommandProcessorBackEnd::TcpCommandMessage::GetEngineId() const { return engineId_; }
const std::string& TcpCommandProcessorBackEnd::TcpCommandMessage::GetStepId() const { return stepId_; }

TcpCommandProcessorBackEnd::TcpCommandProcessorBackEnd(
    std::shared_ptr<tamb::ICommandProcessorFrontEnd> frontEnd,
    std::shared_ptr<tamb::ICommandProcessorBackEnd> backEnd, const socket::SocketEndpoint& endpoint)
    : MessageFormatter("TcpCommandProcessorBackEnd on " + endpoint.toString(socket::Protocol::Plain)),
      localFrontEnd_(std::move(frontEnd)),
      localBackEnd_(std::move(backEnd)),
      commandSocket_("TcpCommandProcessorBackEndCommand", socket::ClosePolicy::Patient) {
  try {
    commandSocket_.createAndConnect(socket::Protocol::Subscriber, endpoint, 0);
  } catch (const std::exception& error) {
    checks().log(std::string("Failed creating socket : ") + error.what(), ReportLine::failedCreatingSocket);
  }
  receptionThread_ = std::make_shared<std::thread>([this] { receptionLoop(); });
}

TcpCommandProcessorBackEnd::~TcpCommandProcessorBackEnd() {
  stopRequest_ = true;
  if (receptionThread_) receptionThread_->join();
}

void TcpCommandProcessorBackEnd::AddControl(std::string /*name*/,
                                            std::shared_ptr<tamb::IBasicControl> /*control*/) {}
void TcpCommandProcessorBackEnd::AddStatusControl(std::string /*name*/,
                                                  std::shared_ptr<tamb::IBasicStatusControl> /*control*/) {}
// By value, like its siblings, whose signatures the framework declares.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void TcpCommandProcessorBackEnd::ExecuteCommand(std::shared_ptr<const tamb::ICommandMessage> /*command*/) {}

void TcpCommandProcessorBackEnd::ExecuteAllCommandsScheduledAt(double time) {
  localBackEnd("ExecuteAllCommandsScheduledAt", ReportLine::executeAllCommandsScheduledAt)
      .ExecuteAllCommandsScheduledAt(time);
}

void TcpCommandProcessorBackEnd::ExecuteAllCommands() {
  localBackEnd("ExecuteAllCommands", ReportLine::executeAllCommands).ExecuteAllCommands();
}

void TcpCommandProcessorBackEnd::EraseAllCommandsInStack() {
  localBackEnd("EraseAllCommandsInStack", ReportLine::eraseAllCommandsInStack).EraseAllCommandsInStack();
}

void TcpCommandProcessorBackEnd::EraseAllCommandsInStackBefore(double time) {
  localBackEnd("EraseAllCommandsInStackBefore", ReportLine::eraseAllCommandsInStackBefore)
      .EraseAllCommandsInStackBefore(time);
}

void TcpCommandProcessorBackEnd::DefineEngine(tamb::IEngineFrontEnd* engine) {
  localBackEnd("DefineEngine", ReportLine::defineEngine).DefineEngine(engine);
}

tamb::ICommandProcessorBackEnd& TcpCommandProcessorBackEnd::localBackEnd(const char* operation,
                                                                         int line) const {
  checks().isTrue(
      localBackEnd_ != nullptr,
      [operation] { return std::string(operation) + ": Invalid command processor back-end"; }, line);
  return *localBackEnd_;
}

void TcpCommandProcessorBackEnd::receptionLoop() {
  if (!commandSocket_.isOpen()) {
    return checks().log("Cannot start reception loop, invalid socket: " + commandSocket_.debugString(),
                        ReportLine::invalidSocket);
  }
  if (!localFrontEnd_) {
    return checks().log("Cannot start reception loop, invalid command processor front end",
                        ReportLine::invalidFrontEnd);
  }
  ListReceiver<proto::CommandMessageList> receiver(commandSocket_);
  receiver.run(
      stopRequest_, [&] { return receive(receiver); },
      [this](const proto::CommandMessageList& list) { receptionLoopHandleCommand(list); });
}

/// False when reception must end: after the first failure of any kind.
bool TcpCommandProcessorBackEnd::receive(ListReceiver<proto::CommandMessageList>& receiver) {
  try {
    std::string errorText;
    const int polled = receiver.poll(errorText);
    if (polled == 0) receiver.receive();
    if (polled == 0 || polled == 1) return true;
    checks().log("Poll error in command reception loop: " + errorText, ReportLine::pollError);
  } catch (const socket::ZmqContextTerminationException& termination) {
    checks().log(termination.what());
  } catch (const std::runtime_error& error) {
    checks().log(std::string("Failed running reception loop: ") + error.what(), ReportLine::failedPoll);
  }
  return false;
}

void TcpCommandProcessorBackEnd::receptionLoopHandleCommand(const proto::CommandMessageList& list) {
  for (const proto::CommandMessage& message : list.messages()) {
    localFrontEnd_->PushCommand(std::make_shared<TcpCommandMessage>(message, argumentsOf(message)));
  }
}

std::shared_ptr<const tamb::IParametersCollectionInstance> TcpCommandProcessorBackEnd::argumentsOf(
    const proto::CommandMessage& message) const {
  if (!message.has_commandargs()) return nullptr;
  return Serializers::ReceivedParameters(
      message.commandargs(), checks(),
      "Command: failed serializing parameters collection: ", ReportLine::failedArguments);
}

Checks TcpCommandProcessorBackEnd::checks() const { return Checks("src/TcpCommandProcessorBackEnd", this); }

}  // namespace qor::multiprocess_communication
