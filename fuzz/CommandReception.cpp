#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

#include "TcpCommandProcessorBackEnd.h"
#include "fuzz/Contents.h"
#include "fuzz/Reception.h"
#include "runtime/tamb/CommandProcessor.h"

namespace {

namespace proto = qor::multiprocess_communication::proto;
using qor::fuzz::require;
using qor::multiprocess_communication::TcpCommandProcessorBackEnd;

/// The local command processor, which also records its commands.
class Watched : public tamb::ICommandProcessorFrontEnd {
 public:
  explicit Watched(std::shared_ptr<tamb::ICommandProcessorFrontEnd> processor)
      : processor_(std::move(processor)) {}

  /// The commands since the last call.
  std::vector<std::shared_ptr<const tamb::ICommandMessage>> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(commands_, {});
  }

  void PushCommand(std::shared_ptr<const tamb::ICommandMessage> command) override {
    {
      const std::lock_guard lock(mutex_);
      commands_.push_back(command);
    }
    processor_->PushCommand(std::move(command));
  }
  void PushCommands(std::vector<std::shared_ptr<const tamb::ICommandMessage>> commands) override {
    processor_->PushCommands(std::move(commands));
  }
  std::shared_ptr<tamb::IBasicControl> GetControl(std::string name) override {
    return processor_->GetControl(std::move(name));
  }
  std::shared_ptr<tamb::IBasicStatusControl> GetStatusControl(std::string name) override {
    return processor_->GetStatusControl(std::move(name));
  }
  void SetWorkflowManagerId(std::string id) override { processor_->SetWorkflowManagerId(std::move(id)); }
  void SetEngineId(unsigned int id) override { processor_->SetEngineId(id); }
  std::string GetWorkflowManagerId() const override { return processor_->GetWorkflowManagerId(); }
  unsigned int GetEngineId() const override { return processor_->GetEngineId(); }

 private:
  const std::shared_ptr<tamb::ICommandProcessorFrontEnd> processor_;
  std::mutex mutex_;
  std::vector<std::shared_ptr<const tamb::ICommandMessage>> commands_;
};

struct EngineProcess {
  EngineProcess() { qor::fuzz::Silence::keep(); }

  std::pair<std::shared_ptr<tamb::ICommandProcessorFrontEnd>, std::shared_ptr<tamb::ICommandProcessorBackEnd>>
      local = tamb::CreateCommandProcessor();
  std::shared_ptr<Watched> watched = std::make_shared<Watched>(local.first);
  TcpCommandProcessorBackEnd backEnd{watched, local.second,
                                     qor::socket::SocketEndpoint::FromString("inproc://commands")};
};

void requireSame(const tamb::ICommandMessage& command, const proto::CommandMessage& message) {
  require(command.GetCommandName() == message.commandname(), "the name is the message's");
  require(command.GetWorkflowManagerId() == message.workflowmanagerid(), "the manager is the message's");
  require(command.GetStepId() == message.stepid(), "the step is the message's");
  require(command.GetCommandId() == (message.commandid() & 0xffff'ffffU), "the id is the message's");
  require(command.GetEngineId() == (message.engineid() & 0xffff'ffffU), "the engine is the message's");
  require(command.GetTime().GetTimeNumber() == message.mediatime().timenumber(), "the time is the message's");
  qor::fuzz::requireSameRate(command.GetTime(), message.mediatime());
  qor::fuzz::requireSameParameters(command.GetCommandArgs(), message.has_commandargs(),
                                   message.commandargs());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static EngineProcess engine;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  qor::fuzz::receiveAs("TcpCommandProcessorBackEndCommand", bytes);

  const auto expected = qor::fuzz::understood<proto::CommandMessageList>(bytes);
  const auto commands = engine.watched->take();
  require(commands.size() == static_cast<std::size_t>(expected.messages_size()), "every command arrives");
  for (std::size_t i = 0; i < commands.size(); ++i) {
    requireSame(*commands[i], expected.messages(static_cast<int>(i)));
  }
  engine.backEnd.ExecuteAllCommandsScheduledAt(0);
  engine.backEnd.ExecuteAllCommands();
  return 0;
}
