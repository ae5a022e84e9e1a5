#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Checks.h"
#include "CommandAndNotification.pb.h"
#include "qor/socket/Socket.h"
#include "qor/utils/MessageFormatter.h"
#include "tamb/ICommandProcessor.h"

namespace qor::multiprocess_communication {

/// The host's end of the command channel: sends the commands that are pushed to the
/// TcpCommandProcessorBackEnd in the engine's process, one message a batch. There is no reply: the commands
/// of a batch that was pushed before the engine's process is there are kept until it is.
///
/// It takes no lock and starts no thread: calls must not overlap.
class TcpCommandProcessorFrontEnd : public tamb::ICommandProcessorFrontEnd, public utils::MessageFormatter {
 public:
  TcpCommandProcessorFrontEnd();
  /// Closes the socket: waits, at most 2 s, while it still keeps commands.
  ~TcpCommandProcessorFrontEnd() override;
  TcpCommandProcessorFrontEnd(const TcpCommandProcessorFrontEnd&) = delete;
  TcpCommandProcessorFrontEnd& operator=(const TcpCommandProcessorFrontEnd&) = delete;

  /// Binds the command endpoint, after leaving an earlier one. Throws the socket's std::runtime_error.
  void connectEndpoint(const socket::SocketEndpoint& endpoint);

  /// Always throws TAMBRuntimeError, as does GetStatusControl: controls do not cross the process boundary.
  std::shared_ptr<tamb::IBasicControl> GetControl(std::string name) override;
  std::shared_ptr<tamb::IBasicStatusControl> GetStatusControl(std::string name) override;
  /// Sends all of the commands or none. Throws TAMBRuntimeError when the endpoint is not bound, a command is
  /// null or addressed to another workflow manager or engine, or one of its arguments has a type that is not
  /// carried; and the socket's std::runtime_error when the batch is larger than a message may be, or a queue
  /// is full. Never waits for the engine's process.
  void PushCommands(std::vector<std::shared_ptr<const tamb::ICommandMessage>> commands) override;
  void PushCommand(std::shared_ptr<const tamb::ICommandMessage> command) override;
  /// The ids that commands have to bear; to be set before the first is pushed.
  void SetWorkflowManagerId(std::string id) override;
  void SetEngineId(unsigned int id) override;
  std::string GetWorkflowManagerId() const override;
  unsigned int GetEngineId() const override;

 private:
  void add(const std::shared_ptr<const tamb::ICommandMessage>& command);
  static void write(const tamb::ICommandMessage& command, proto::CommandMessage& message);
  Checks checks() const;

  std::string workflowManagerId_;
  unsigned int engineId_ = 0;
  socket::Socket commandSocket_;
  proto::CommandMessageList list_;  ///< the batch being pushed; its memory serves the next one
};

}  // namespace qor::multiprocess_communication
