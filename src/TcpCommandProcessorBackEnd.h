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

/// The engine process's end of the command channel: pushes what the host's TcpCommandProcessorFrontEnd sends
/// into the engine's own command processor, one command at a time and in order, and stands in for that
/// processor's back end towards the engine.
///
/// The reception thread alone uses the socket and pushes. Whatever goes wrong with the socket ends reception
/// for good, with a log line; what cannot be read is skipped. The forwarding operations run on the caller's
/// thread.
class TcpCommandProcessorBackEnd : public tamb::ICommandProcessorBackEnd, public utils::MessageFormatter {
 public:
  /// A received command. Immutable, hence for any thread.
  class TcpCommandMessage : public tamb::ICommandMessage {
   public:
    /// Ids are cut to their low 32 bits; the arguments are those given, not the message's.
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

  /// Starts reception from the host at `endpoint`, there already or not. A socket that cannot be opened is
  /// logged, and nothing is received then. Without a local front end nothing is received either; without a
  /// local back end the forwarding operations throw.
  TcpCommandProcessorBackEnd(std::shared_ptr<tamb::ICommandProcessorFrontEnd> frontEnd,
                             std::shared_ptr<tamb::ICommandProcessorBackEnd> backEnd,
                             const socket::SocketEndpoint& endpoint);
  /// Joins the reception thread: waits for the push under way, and at most 100 ms besides. Not to be
  /// called within a push, which would wait for itself.
  ~TcpCommandProcessorBackEnd() override;
  TcpCommandProcessorBackEnd(const TcpCommandProcessorBackEnd&) = delete;
  TcpCommandProcessorBackEnd& operator=(const TcpCommandProcessorBackEnd&) = delete;

  /// These three do nothing: controls are added to the local command processor itself, and it executes.
  void AddControl(std::string name, std::shared_ptr<tamb::IBasicControl> control) override;
  void AddStatusControl(std::string name, std::shared_ptr<tamb::IBasicStatusControl> control) override;
  void ExecuteCommand(std::shared_ptr<const tamb::ICommandMessage> command);
  /// These five are the local back end's. They throw TAMBRuntimeError when there is none.
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
