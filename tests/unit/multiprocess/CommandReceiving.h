#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "TcpCommandProcessorBackEnd.h"
#include "tests/support/RecordingCommandProcessor.h"
#include "tests/unit/multiprocess/ReceivingTest.h"

namespace qor::multiprocess_communication {

/// The receiving half of the command channel.
struct CommandReceiving {
  using Receiver = TcpCommandProcessorBackEnd;
  using IItem = tamb::ICommandMessage;
  using Item = std::shared_ptr<const IItem>;
  using List = proto::CommandMessageList;
  using Wire = proto::CommandMessage;

  static constexpr const char* socketName = "TcpCommandProcessorBackEndCommand";
  static constexpr const char* address = "inproc://commands";
  static constexpr const char* source = "src/TcpCommandProcessorBackEnd";
  static constexpr const char* header = "TcpCommandProcessorBackEnd on inproc://commands";
  static constexpr Report pollError{"Poll error in command reception loop: ", 203};
  static constexpr Report contextEnd{"", 0};
  static constexpr Report lostParameters{"Command: failed serializing parameters collection: ", 249};

  /// Takes commands one by one only.
  class OneByOne : public test::RecordingCommandProcessor {
   public:
    void PushCommands(std::vector<Item> /*batch*/) override { ADD_FAILURE() << "pushed as a batch"; }
  };
  struct Local {
    std::shared_ptr<test::RecordingCommandProcessor> processor = std::make_shared<OneByOne>();
  };
  static auto& arrivals(const Local& local) { return local.processor->commands; }
  static auto& onPush(const Local& local) { return local.processor->onPush; }

  static void open(std::optional<Receiver>& receiver, const Local& local,
                   const socket::SocketEndpoint& endpoint) {
    receiver.emplace(local.processor, nullptr, endpoint);
  }

  static auto& mutableTime(Wire& wire) { return *wire.mutable_mediatime(); }
  static void name(Wire& wire, const std::string& name) { wire.set_commandname(name); }
  static void step(Wire& wire, const std::string& step) { wire.set_stepid(step); }
  static auto& mutableParameters(Wire& wire) { return *wire.mutable_commandargs(); }
  static const auto& name(const IItem& item) { return item.GetCommandName(); }
  static auto parameters(const IItem& item) { return item.GetCommandArgs(); }
};

class CommandReceivingTest : public ReceivingTest<CommandReceiving> {
 protected:
  using Command = CommandReceiving::Item;

  void construct(std::shared_ptr<tamb::ICommandProcessorBackEnd> localBackEnd = nullptr) {
    receiver_.emplace(local_.processor, std::move(localBackEnd), endpoint());
  }
};

}  // namespace qor::multiprocess_communication
