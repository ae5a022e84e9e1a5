#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "CommandAndNotification.pb.h"
#include "TcpCommandProcessorBackEnd.h"
#include "runtime/inproc/Network.h"
#include "tests/support/BackgroundCall.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/Eventually.h"
#include "tests/support/Gate.h"
#include "tests/support/RecordingCommandProcessor.h"

namespace qor::multiprocess_communication {

/// A back end, whose local command processor keeps what is pushed, and which gets raw messages.
class CommandBackEndTest : public ::testing::Test {
 public:
  ~CommandBackEndTest() override { socket::inproc::reset(); }

 protected:
  using Operation = socket::inproc::Operation;
  using Failure = socket::inproc::Failure;
  using Command = std::shared_ptr<const tamb::ICommandMessage>;

  static constexpr const char* socketName = "TcpCommandProcessorBackEndCommand";
  static constexpr const char* address = "inproc://commands";
  static constexpr const char* header = "TcpCommandProcessorBackEnd on inproc://commands";
  /// How the socket is called in log lines.
  static constexpr const char* socketLabel =
      "TcpCommandProcessorBackEndCommand (Subscriber inproc://commands)";
  static constexpr std::chrono::seconds patience{20};
  /// Far more than destruction takes without a push under way, and far less than any other wait.
  static constexpr std::chrono::seconds soon{5};

  /// Takes commands one by one only.
  class OneByOne : public test::RecordingCommandProcessor {
   public:
    void PushCommands(std::vector<Command> /*batch*/) override { ADD_FAILURE() << "pushed as a batch"; }
  };

  void TearDown() override {
    gate_.open();
    backEnd_.reset();
    EXPECT_TRUE(socket::inproc::sockets().empty());
  }

  static socket::SocketEndpoint endpoint() { return socket::SocketEndpoint::FromString(address); }
  void construct(std::shared_ptr<tamb::ICommandProcessorBackEnd> localBackEnd = nullptr) {
    backEnd_.emplace(processor_, std::move(localBackEnd), endpoint());
  }

  /// A complete command to put into a list.
  static void add(proto::CommandMessageList& list, const std::string& name) {
    auto& message = *list.add_messages();
    message.mutable_mediatime()->mutable_editrate()->set_numerator(25);
    message.mutable_mediatime()->mutable_editrate()->set_denominator(1);
    message.mutable_mediatime()->set_timenumber(3);
    message.set_commandname(name);
    message.set_commandid(5);
    message.set_workflowmanagerid("manager-17");
    message.set_engineid(7);
    message.set_stepid("step of " + name);
  }
  static proto::CommandMessageList listOf(const std::vector<std::string>& names) {
    proto::CommandMessageList list;
    for (const auto& name : names) add(list, name);
    return list;
  }
  static void deliver(const proto::CommandMessageList& list) {
    socket::inproc::deliver(socketName, list.SerializePartialAsString());
  }
  static void deliver(const std::vector<std::string>& names) { deliver(listOf(names)); }

  /// Waits until so many commands have arrived in all; throws when there are others than that.
  std::vector<Command> arrived(std::size_t count) const {
    auto commands = processor_->commands.waitFor(count);
    if (commands.size() != count) {
      throw std::runtime_error(std::to_string(commands.size()) + " commands arrived, not " +
                               std::to_string(count));
    }
    return commands;
  }
  std::vector<std::string> arrivedNames(std::size_t count) const {
    std::vector<std::string> names;
    for (const auto& command : processor_->commands.waitFor(count))
      names.push_back(command->GetCommandName());
    return names;
  }
  /// Waits until everything that was delivered has been handled.
  static bool waitUntilIdle() {
    return socket::inproc::waitUntil(socketName, [](const socket::inproc::SocketState& state) {
      return state.unreceived == 0 && state.blockedIn == Operation::Poll;
    });
  }
  /// Waits until the thread that wrote a record is gone; false when it still is there after some time.
  static bool waitUntilGone(const std::string& threadId) {
    return test::eventually([&] { return !std::filesystem::exists("/proc/self/task/" + threadId); });
  }

  static void expectRecord(const test::LogRecord& record, const std::string& text) {
    EXPECT_EQ(record.message, std::string(header) + ": " + text);
    EXPECT_EQ(static_cast<int>(record.level), 2);
    EXPECT_EQ(record.source, "src/TcpCommandProcessorBackEnd");
    EXPECT_EQ(record.function, "");
  }
  static void expectRecord(const test::LogRecord& record, const std::string& text, int line) {
    expectRecord(record, text);
    EXPECT_EQ(record.line, std::to_string(line));
  }

  const test::CapturedLog log_;
  test::Gate gate_;
  std::shared_ptr<test::RecordingCommandProcessor> processor_ = std::make_shared<OneByOne>();
  std::optional<TcpCommandProcessorBackEnd> backEnd_;
};

}  // namespace qor::multiprocess_communication
