#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "CommandAndNotification.pb.h"
#include "TcpCommandProcessorBackEnd.h"
#include "TcpCommandProcessorFrontEnd.h"
#include "TcpNotificationHubBackEnd.h"
#include "TcpNotificationHubFrontEnd.h"
#include "runtime/inproc/Network.h"
#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/CurrentLoggerWriter.h"
#include "runtime/tamb/NotificationMessage.h"

namespace qor::multiprocess_communication {
namespace {

using socket::inproc::Operation;

/// How much memory one end of a channel may keep of the lists that have passed it.
constexpr long bound = 32L * 1024 * 1024;
constexpr int lists = 200;
/// In each list.
constexpr int messages = 1'000;
constexpr unsigned int largest = socket::Socket::maximumMessageSize;

/// Drops every log record while it lives: each refused list is logged, and kept records would be growth, too.
class SilencedLog {
 public:
  SilencedLog() : previous_(tamb::SetCurrentLoggerWriter(std::make_shared<Writer>())) {}
  ~SilencedLog() { tamb::SetCurrentLoggerWriter(std::move(previous_)); }
  SilencedLog(const SilencedLog&) = delete;
  SilencedLog& operator=(const SilencedLog&) = delete;

 private:
  class Writer : public tamb::ILoggerWriter {
   public:
    void Write(tamb::LogLevel /*level*/, const std::string& /*message*/, const std::string& /*context*/,
               const std::string& /*source*/, const std::string& /*line*/, const std::string& /*function*/,
               const std::string& /*threadId*/, const std::string& /*time*/) override {}
  };

  std::shared_ptr<tamb::ILoggerWriter> previous_;
};

long residentBytes() {
  std::ifstream statm("/proc/self/statm");
  long size = 0;
  long resident = 0;
  statm >> size >> resident;
  return resident * ::sysconf(_SC_PAGESIZE);
}

/// How much resident memory the process has gained since this was made, at most.
class Growth {
 public:
  Growth() {
    // Freed memory that stays resident would hide as much growth.
    ::malloc_trim(0);
    start_ = residentBytes();
  }
  void look() { most_ = std::max(most_, residentBytes() - start_); }
  long most() const { return most_; }

 private:
  long start_ = 0;
  long most_ = 0;
};

const auto endpoint = [] { return socket::SocketEndpoint::FromString("inproc://channel"); };

void fill(proto::CommandMessage& message) {
  message.mutable_mediatime()->mutable_editrate()->set_numerator(25);
  message.mutable_mediatime()->mutable_editrate()->set_denominator(1);
  message.mutable_mediatime()->set_timenumber(3);
  message.set_commandname("");
  message.set_commandid(5);
  message.set_workflowmanagerid("");
  message.set_engineid(7);
  message.set_stepid("");
}
void fill(proto::NotificationMessage& message) {
  message.mutable_time()->mutable_editrate()->set_numerator(25);
  message.mutable_time()->mutable_editrate()->set_denominator(1);
  message.mutable_time()->set_timenumber(3);
  message.set_workflowstep("");
  message.set_notificationline("");
  message.set_id("");
  message.set_commandid(5);
  message.set_workflowmanagerid("");
  message.set_engineid(7);
}
proto::ParametersCollectionInstance& parametersOf(proto::CommandMessage& message) {
  return *message.mutable_commandargs();
}
proto::ParametersCollectionInstance& parametersOf(proto::NotificationMessage& message) {
  return *message.mutable_notificationobject();
}

/// A list of at most 64 KiB, one of whose many messages has as many parameters as there is room for, of the
/// kind that takes most memory for each byte.
template <class List>
List withParametersInOne(int place) {
  List list;
  for (int i = 0; i < messages; ++i) fill(*list.add_messages());
  auto& parameters = parametersOf(*list.mutable_messages(place % list.messages_size()));
  parameters.mutable_prototype()->mutable_data();
  const std::size_t room = largest - 100 - list.ByteSizeLong();
  constexpr std::size_t sizeOfOne = 6;
  for (std::size_t i = 0; i < room / sizeOfOne; ++i) {
    auto& parameter = *parameters.mutable_data()->add_utf16stringparams();
    parameter.set_key("");
    parameter.set_value("");
  }
  if (list.ByteSizeLong() > largest) throw std::logic_error("the list is larger than a message may be");
  return list;
}

/// Gives lists that fill other elements each time to a subscriber, one by one, and returns how much the
/// process grows at most.
template <class List, class Spoil>
long growthOverLists(const std::string& subscriber, const Spoil& spoil) {
  const auto handle = [&](int i) {
    auto list = withParametersInOne<List>(i);
    std::string bytes = list.SerializeAsString();
    spoil(i, list, bytes);
    socket::inproc::deliver(subscriber, bytes);
    const bool handled = socket::inproc::waitUntil(subscriber, [](const socket::inproc::SocketState& state) {
      return state.unreceived == 0 && state.blockedIn == Operation::Poll;
    });
    if (!handled) throw std::runtime_error("the list is not handled");
  };
  // Makes what threads and queues need.
  handle(0);
  Growth growth;
  for (int i = 1; i <= lists; ++i) {
    handle(i);
    growth.look();
  }
  return growth.most();
}

constexpr auto legal = [](int /*i*/, const auto& /*list*/, std::string& /*bytes*/) {};
/// Cut short, or without a required field: either is read whole before it is refused.
constexpr auto refused = [](int i, auto& list, std::string& bytes) {
  if (i % 2 == 0) {
    bytes.pop_back();
    bytes.back() = '\x7f';
  } else {
    list.mutable_messages(list.messages_size() - 1)->clear_engineid();
    bytes = list.SerializePartialAsString();
  }
};

class CommandCounter : public tamb::ICommandProcessorFrontEnd {
 public:
  std::atomic<std::size_t> count = 0;
  std::shared_ptr<tamb::IBasicControl> GetControl(std::string /*name*/) override { return nullptr; }
  std::shared_ptr<tamb::IBasicStatusControl> GetStatusControl(std::string /*name*/) override {
    return nullptr;
  }
  void PushCommands(std::vector<std::shared_ptr<const tamb::ICommandMessage>> commands) override {
    count += commands.size();
  }
  void PushCommand(std::shared_ptr<const tamb::ICommandMessage> /*command*/) override { ++count; }
  void SetWorkflowManagerId(std::string /*id*/) override {}
  void SetEngineId(unsigned int /*id*/) override {}
  std::string GetWorkflowManagerId() const override { return {}; }
  unsigned int GetEngineId() const override { return 0; }
};

class NotificationCounter : public tamb::INotificationHubBackEnd {
 public:
  std::atomic<std::size_t> count = 0;
  void PushNotifications(
      std::vector<std::shared_ptr<const tamb::INotificationMessage>> notifications) override {
    count += notifications.size();
  }
  void PushNotification(std::shared_ptr<const tamb::INotificationMessage> /*notification*/) override {
    ++count;
  }
};

template <class Spoil>
void expectBoundedCommandsReception(const Spoil& spoil, std::size_t delivered) {
  const SilencedLog silence;
  const auto counter = std::make_shared<CommandCounter>();
  const TcpCommandProcessorBackEnd backEnd(counter, nullptr, endpoint());
  EXPECT_LE(growthOverLists<proto::CommandMessageList>("TcpCommandProcessorBackEndCommand", spoil), bound);
  EXPECT_EQ(counter->count, delivered);
}

template <class Spoil>
void expectBoundedNotificationsReception(const Spoil& spoil, std::size_t delivered) {
  const SilencedLog silence;
  const auto counter = std::make_shared<NotificationCounter>();
  TcpNotificationHubFrontEnd frontEnd(tamb::CreateNotificationHub().first, counter);
  frontEnd.startSubscriptionThread(endpoint());
  EXPECT_LE(growthOverLists<proto::NotificationMessageList>("TcpNotificationHubFrontEndNotification", spoil),
            bound);
  EXPECT_EQ(counter->count, delivered);
}

TEST(ResidentMemory, OfTheCommandsReceptionStaysBounded) {
  expectBoundedCommandsReception(legal, (1 + lists) * messages);
}
TEST(ResidentMemory, OfTheCommandsReceptionStaysBoundedWhateverIsRefused) {
  expectBoundedCommandsReception(refused, 0);
}
TEST(ResidentMemory, OfTheNotificationsReceptionStaysBounded) {
  expectBoundedNotificationsReception(legal, (1 + lists) * messages);
}
TEST(ResidentMemory, OfTheNotificationsReceptionStaysBoundedWhateverIsRefused) {
  expectBoundedNotificationsReception(refused, 0);
}

/// Parameters that nearly fill a message.
std::shared_ptr<const tamb::IParametersCollectionInstance> manyParameters() {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  for (int i = 0; i < 2'000; ++i) prototype->AddBoolKey(std::to_string(i), false, "");
  return tamb::CreateParametersCollectionInstance(prototype);
}

/// Each list has as many messages, one of which is large: another one each time.
constexpr std::size_t pushes = 300;

/// Pushes lists while a listener takes them, and returns how much the process grows at most.
template <class Push>
long growthOverPushes(const Push& push) {
  const SilencedLog silence;
  socket::Socket listener("Listener", socket::ClosePolicy::Newest);
  listener.createAndConnect(socket::Protocol::Subscriber, endpoint(), 0);
  Growth growth;
  for (std::size_t i = 0; i < pushes; ++i) {
    push(i);
    proto::CommandMessageList taken;
    std::string errorText;
    if (listener.poll(0, errorText) == 0) {
      // Too small a bound for anything: it is not read.
      listener.receiveProtoBuf(&taken, 1);
    }
    growth.look();
  }
  return growth.most();
}

TEST(ResidentMemory, OfTheCommandsSenderStaysBounded) {
  const auto plain = std::make_shared<tamb::CommandMessage>(tamb::CommandFields{});
  const auto large =
      std::make_shared<tamb::CommandMessage>(tamb::CommandFields{.commandArgs = manyParameters()});
  TcpCommandProcessorFrontEnd frontEnd;
  frontEnd.connectEndpoint(endpoint());
  EXPECT_LE(growthOverPushes([&](std::size_t i) {
              std::vector<std::shared_ptr<const tamb::ICommandMessage>> commands(pushes, plain);
              commands.at(i) = large;
              frontEnd.PushCommands(std::move(commands));
            }),
            bound);
}

TEST(ResidentMemory, OfTheNotificationsSenderStaysBounded) {
  const auto plain = std::make_shared<tamb::NotificationMessage>(tamb::NotificationFields{});
  const auto large = std::make_shared<tamb::NotificationMessage>(
      tamb::NotificationFields{.notificationObject = manyParameters()});
  TcpNotificationHubBackEnd backEnd("", 0, endpoint());
  EXPECT_LE(growthOverPushes([&](std::size_t i) {
              std::vector<std::shared_ptr<const tamb::INotificationMessage>> notifications(pushes, plain);
              notifications.at(i) = large;
              backEnd.PushNotifications(std::move(notifications));
            }),
            bound);
}

}  // namespace
}  // namespace qor::multiprocess_communication
