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

/// The host's end of the command channel: sends the commands that are pushed to the
/// TcpCommandProcessorBackEnd in the engine's process, one message a batch. There is no reply: the commands
/// of a batch that was pushed before the engine's process is there are kept until it is.
///
/// Any thread may push, several at once, and also an operation of a command that is being pushed: the nested
/// batch then goes out first. Each batch goes out whole, and the batches of one thread in the order in which
/// their pushes end. No push waits for the operations of another thread's commands: a lock is held for the
/// send alone. One thread at a time sets the ids, before the first push, and the endpoint.
class TcpCommandProcessorFrontEnd : public tamb::ICommandProcessorFrontEnd, public utils::MessageFormatter {
 public:
  TcpCommandProcessorFrontEnd();
  /// Closes the socket: waits, at most 2 s, while it still keeps commands.
  ~TcpCommandProcessorFrontEnd() override;
  TcpCommandProcessorFrontEnd(const TcpCommandProcessorFrontEnd&) = delete;
  TcpCommandProcessorFrontEnd& operator=(const TcpCommandProcessorFrontEnd&) = delete;

  /// Binds the command endpoint, after leaving an earlier one, which takes up to 2 s while commands for it
  /// are kept. Throws the socket's std::runtime_error and leaves nothing bound. A push on another thread
  /// meanwhile is refused, or goes out whole at one of the two endpoints.
  void connectEndpoint(const socket::SocketEndpoint& endpoint);

  /// Always throws TAMBRuntimeError, as does GetStatusControl: controls do not cross the process boundary.
  std::shared_ptr<tamb::IBasicControl> GetControl(std::string name) override;
  std::shared_ptr<tamb::IBasicStatusControl> GetStatusControl(std::string name) override;
  /// Sends all of the commands or none. Throws TAMBRuntimeError when the endpoint is not bound, a command is
  /// null or addressed to another workflow manager or engine, or one of its arguments has a type that is not
  /// carried; and the socket's std::runtime_error when the batch is larger than a message may be, or a queue
  /// is full. Never waits for the engine's process, only for another thread that sends or binds.
  void PushCommands(std::vector<std::shared_ptr<const tamb::ICommandMessage>> commands) override;
  void PushCommand(std::shared_ptr<const tamb::ICommandMessage> command) override;
  /// The ids that commands have to bear; to be set before the first is pushed.
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
