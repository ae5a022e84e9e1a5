#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "Checks.h"
#include "CommandAndNotification.pb.h"
#include "Serializers.h"
#include "qor/socket/Socket.h"
#include "qor/utils/MessageFormatter.h"
#include "tamb/ICommandProcessor.h"

namespace qor::multiprocess_communication {

/// The engine process's end of the command channel. Receives commands from the host's
/// TcpCommandProcessorFrontEnd and pushes them into the engine's own command processor, one at a time and in
/// order. Towards the engine it replaces that processor's back end.
///
/// Only the reception thread uses the socket and pushes. Any failure of the socket ends reception for good
/// and is logged; an unreadable message is skipped. The forwarding operations run on the caller's thread.
class TcpCommandProcessorBackEnd : public tamb::ICommandProcessorBackEnd, public utils::MessageFormatter {
 public:
  /// A received command. Immutable: any thread may use it.
  class TcpCommandMessage : public tamb::ICommandMessage {
   public:
    /// Cuts ids to their low 32 bits. Takes the given arguments, not those of the message.
    TcpCommandMessage(const proto::CommandMessage& message,
                      std::shared_ptr<const tamb::IParametersCollectionInstance> commandArgs);

    std::shared_ptr<const tamb::IParametersCollectionInstance> GetCommandArgs() const override;
    const tamb::MediaTime& GetTime() const override;
    const std::string& GetCommandName() const override;
    unsigned int GetCommandId() const override;
    const std::string& GetWorkflowManagerId() const override;
    unsigned int GetEngineId() const override;
    const std::string& GetStepId() const override;

   private:
    const std::string workflowManagerId_;
    const unsigned int engineId_;
    const std::string stepId_;
    const tamb::MediaTime time_;
    const std::string commandName_;
    const unsigned int commandId_;
    const std::shared_ptr<const tamb::IParametersCollectionInstance> commandArgs_;
  };

  /// Starts reception at `endpoint`, whether or not the host has bound it yet. Logs a socket that cannot be
  /// opened; nothing is received in that case, nor without a local front end. Without a local back end the
  /// forwarding operations throw.
  TcpCommandProcessorBackEnd(std::shared_ptr<tamb::ICommandProcessorFrontEnd> frontEnd,
                             std::shared_ptr<tamb::ICommandProcessorBackEnd> backEnd,
                             const socket::SocketEndpoint& endpoint);
  /// Joins the reception thread: waits until the current list is pushed, and at most 100 ms longer. Must not
  /// be called from a push, which would wait for itself.
  ~TcpCommandProcessorBackEnd() override;
  TcpCommandProcessorBackEnd(const TcpCommandProcessorBackEnd&) = delete;
  TcpCommandProcessorBackEnd& operator=(const TcpCommandProcessorBackEnd&) = delete;

  /// These three do nothing: the local command processor itself has the controls and executes the commands.
  void AddControl(std::string name, std::shared_ptr<tamb::IBasicControl> control) override;
  void AddStatusControl(std::string name, std::shared_ptr<tamb::IBasicStatusControl> control) override;
  void ExecuteCommand(std::shared_ptr<const tamb::ICommandMessage> command);
  /// These five call the local back end. They throw TAMBRuntimeError without one.
  void ExecuteAllCommandsScheduledAt(double time) override;
  void ExecuteAllCommands() override;
  void EraseAllCommandsInStack() override;
  void EraseAllCommandsInStackBefore(double time) override;
  void DefineEngine(tamb::IEngineFrontEnd* engine) override;

 private:
  void receptionLoop();
  bool receive(ListReceiver<proto::CommandMessageList>& receiver);
  void receptionLoopHandleCommand(const proto::CommandMessageList& list);
  std::shared_ptr<const tamb::IParametersCollectionInstance> argumentsOf(
      const proto::CommandMessage& message) const;
  tamb::ICommandProcessorBackEnd& localBackEnd(const char* operation, int line) const;
  Checks checks() const;

  const std::shared_ptr<tamb::ICommandProcessorFrontEnd> localFrontEnd_;
  const std::shared_ptr<tamb::ICommandProcessorBackEnd> localBackEnd_;
  socket::Socket commandSocket_;
  std::atomic<bool> stopRequest_{false};
  std::shared_ptr<std::thread> receptionThread_;
};

}  // namespace qor::multiprocess_communication
