#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Checks.h"
#include "CommandAndNotification.pb.h"
#include "Serializers.h"
#include "qor/socket/Socket.h"
#include "qor/utils/MessageFormatter.h"
#include "tamb/ICommandProcessor.h"

namespace qor::multiprocess_communication {

/// The host's end of the command channel: sends each batch of pushed commands as one message to the
/// TcpCommandProcessorBackEnd in the engine process. There is no reply. Batches that are pushed before the
/// engine process connects are kept until it does.
///
/// Any number of threads may push, and so may an operation of a command that is being pushed: the nested
/// batch is sent first. Each batch is sent whole; the batches of one thread are sent in the order in which
/// their pushes end. No push waits for the operations of another thread's commands: the lock is held only for
/// the send. One thread at a time sets the ids, before the first push, and the endpoint.
class TcpCommandProcessorFrontEnd : public tamb::ICommandProcessorFrontEnd, public utils::MessageFormatter {
 public:
  TcpCommandProcessorFrontEnd();
  /// Closes the socket: waits at most 2 s for commands that it still keeps.
  ~TcpCommandProcessorFrontEnd() override;
  TcpCommandProcessorFrontEnd(const TcpCommandProcessorFrontEnd&) = delete;
  TcpCommandProcessorFrontEnd& operator=(const TcpCommandProcessorFrontEnd&) = delete;

  /// Closes an earlier endpoint, which takes up to 2 s while commands for it are kept, then binds this one.
  /// When it throws the socket's std::runtime_error, nothing is bound. A concurrent push on another thread is
  /// refused or sent whole at one of the two endpoints.
  void connectEndpoint(const socket::SocketEndpoint& endpoint);

  /// Both always throw TAMBRuntimeError: controls do not cross the process boundary.
  std::shared_ptr<tamb::IBasicControl> GetControl(std::string name) override;
  std::shared_ptr<tamb::IBasicStatusControl> GetStatusControl(std::string name) override;
  /// Sends all commands or none. Throws TAMBRuntimeError when the endpoint is not bound, or when a command is
  /// null, is addressed to another workflow manager or engine, or has an argument of a type that cannot be
  /// carried. Throws the socket's std::runtime_error when the batch exceeds the largest message, or a queue
  /// is full. Never waits for the engine process, only for another thread that sends or binds.
  void PushCommands(std::vector<std::shared_ptr<const tamb::ICommandMessage>> commands) override;
  void PushCommand(std::shared_ptr<const tamb::ICommandMessage> command) override;
  /// The ids that every command must have; set before the first push.
  void SetWorkflowManagerId(std::string id) override;
  void SetEngineId(unsigned int id) override;
  std::string GetWorkflowManagerId() const override;
  unsigned int GetEngineId() const override;

 private:
  void add(const std::shared_ptr<const tamb::ICommandMessage>& command,
           proto::CommandMessageList& list) const;
  static void write(const tamb::ICommandMessage& command, proto::CommandMessage& message);
  Checks checks() const;

  std::string workflowManagerId_;
  unsigned int engineId_ = 0;
  socket::Socket commandSocket_;
  ListSender<proto::CommandMessageList> sender_;
};

}  // namespace qor::multiprocess_communication
