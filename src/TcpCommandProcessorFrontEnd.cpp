#include "TcpCommandProcessorFrontEnd.h"

#include <utility>

namespace qor::multiprocess_communication {

namespace {

namespace ReportLine {
constexpr int getControl = 21;
constexpr int getStatusControl = 28;
constexpr int invalidSocket = 40;
constexpr int nullCommand = 52;
constexpr int badWorkflowManagerId = 58;
constexpr int badEngineId = 64;
}  // namespace ReportLine

}  // namespace

TcpCommandProcessorFrontEnd::TcpCommandProcessorFrontEnd()
    : MessageFormatter("TcpCommandProcessorFrontEnd"),
      commandSocket_("TcpCommandProcessorFrontEndCommand", socket::ClosePolicy::Patient) {}

TcpCommandProcessorFrontEnd::~TcpCommandProcessorFrontEnd() = default;

void TcpCommandProcessorFrontEnd::connectEndpoint(const socket::SocketEndpoint& endpoint) {
  // createAndConnect refuses an open socket. Closing needs no lock, and may take 2 s, for which no push
  // should wait.
  commandSocket_.close();
  sender_.whileNobodySends(
      [&] { commandSocket_.createAndConnect(socket::Protocol::Publisher, endpoint, 0); });
}

std::shared_ptr<tamb::IBasicControl> TcpCommandProcessorFrontEnd::GetControl(std::string /*name*/) {
  checks().never("GetControl cannot work", ReportLine::getControl);
}

std::shared_ptr<tamb::IBasicStatusControl> TcpCommandProcessorFrontEnd::GetStatusControl(
    std::string /*name*/) {
  checks().never("GetStatusControl: what the hell is this?", ReportLine::getStatusControl);
}

void TcpCommandProcessorFrontEnd::PushCommands(
    std::vector<std::shared_ptr<const tamb::ICommandMessage>> commands) {
  checks().isTrue(
      commandSocket_.isOpen(), [this] { return "Invalid socket: " + commandSocket_.debugString(); },
      ReportLine::invalidSocket);
  sender_.send(commandSocket_, commands, [this](const auto& command, auto& list) { add(command, list); });
}

void TcpCommandProcessorFrontEnd::add(const std::shared_ptr<const tamb::ICommandMessage>& command,
                                      proto::CommandMessageList& list) const {
  checks().isFalse(command == nullptr, "NULL command passed to the command processor",
                   ReportLine::nullCommand);
  checks().isTrue(command->GetWorkflowManagerId() == workflowManagerId_,
                  "Bad workflow manager id in command message", ReportLine::badWorkflowManagerId);
  checks().isTrue(command->GetEngineId() == engineId_, "Bad engine id in command message",
                  ReportLine::badEngineId);
  write(*command, *list.add_messages());
}

void TcpCommandProcessorFrontEnd::write(const tamb::ICommandMessage& command,
                                        proto::CommandMessage& message) {
  Serializers::MediaTimeToProtoBuf(command.GetTime(), *message.mutable_mediatime());
  message.set_commandname(command.GetCommandName());
  message.set_commandid(command.GetCommandId());
  message.set_workflowmanagerid(command.GetWorkflowManagerId());
  message.set_engineid(command.GetEngineId());
  message.set_stepid(command.GetStepId());
  if (const auto arguments = command.GetCommandArgs()) {
    Serializers::ParametersCollectionInstanceToProtoBuf(arguments, *message.mutable_commandargs());
  }
}

void TcpCommandProcessorFrontEnd::PushCommand(std::shared_ptr<const tamb::ICommandMessage> command) {
  PushCommands({std::move(command)});
}

void TcpCommandProcessorFrontEnd::SetWorkflowManagerId(std::string id) { workflowManagerId_ = std::move(id); }

void TcpCommandProcessorFrontEnd::SetEngineId(unsigned int id) { engineId_ = id; }

std::string TcpCommandProcessorFrontEnd::GetWorkflowManagerId() const { return workflowManagerId_; }

unsigned int TcpCommandProcessorFrontEnd::GetEngineId() const { return engineId_; }

Checks TcpCommandProcessorFrontEnd::checks() const { return Checks("src/TcpCommandProcessorFrontEnd", this); }

}  // namespace qor::multiprocess_communication
