#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "qor/socket/Socket.h"
#include "runtime/inproc/Network.h"
#include "tamb/IParametersCollection.h"
#include "tamb/MediaTime.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/CapturedLog.h"

namespace qor::multiprocess_communication {

/// How a check reports that it has failed.
struct Refusal {
  const char* text;
  const char* suffix;
  int line;
};
inline constexpr const char* isNotTrue = "] [ Condition is not true ]";
inline constexpr const char* isNotFalse = "] [ Condition is not false ]";
inline constexpr const char* isNull = "] [ Pointer is null ]";

/// The sending half of a channel, and a subscriber that looks at what it sends. All of it happens on the
/// test's own thread. `Channel` says what the two channels differ in; their items are commands and
/// notifications.
template <class Channel>
class SendingTest : public ::testing::Test {
 public:
  ~SendingTest() override { socket::inproc::reset(); }

 protected:
  using Operation = socket::inproc::Operation;
  using Failure = socket::inproc::Failure;
  using Item = typename Channel::Item;
  using Batch = typename Channel::Batch;
  using Fields = typename Channel::Fields;
  using Message = typename Channel::Message;
  using Watched = typename Channel::Watched;
  using List = typename Channel::List;
  using Wire = typename Channel::Wire;
  using Parameters = std::shared_ptr<const tamb::IParametersCollectionInstance>;

  static constexpr const char* socketName = Channel::socketName;
  static constexpr const char* address = Channel::address;
  static constexpr const char* manager = "manager-17";
  static constexpr unsigned int engine = 7;

  void TearDown() override {
    // A sender that goes waits for whatever nobody has taken.
    if (sender_ && !listener_.isOpen()) listen();
    sender_.reset();
    listener_.close();
    EXPECT_TRUE(socket::inproc::sockets().empty());
  }

  static socket::SocketEndpoint endpoint(const std::string& where = address) {
    return socket::SocketEndpoint::FromString(where);
  }
  /// A sender whose endpoint is bound.
  void open(unsigned int engineId = engine, const std::string& managerId = manager) {
    sender_.reset();
    Channel::open(sender_, managerId, engineId, endpoint());
  }
  /// From now on everything is taken in order.
  void listen(const std::string& where = address) {
    listener_.close();
    listener_.createAndConnect(socket::Protocol::Subscriber, endpoint(where), 0);
  }

  static Fields fields(const std::string& name = "a name") {
    Fields its = Channel::fields(name);
    its.time = tamb::MediaTime(tamb::EditRate(25, 1), 3, nullptr);
    its.commandId = 5;
    its.workflowManagerId = manager;
    its.engineId = engine;
    return its;
  }
  static Item itemWith(const Fields& its) { return std::make_shared<Message>(its); }
  static Item item(const std::string& name = "a name") { return itemWith(fields(name)); }
  static Item itemOf(const std::string& managerId, unsigned int engineId) {
    auto its = fields();
    its.workflowManagerId = managerId;
    its.engineId = engineId;
    return itemWith(its);
  }
  static Item itemWith(Parameters parameters, const std::string& name = "a name") {
    auto its = fields(name);
    Channel::parameters(its) = std::move(parameters);
    return itemWith(its);
  }
  /// Parameters of a type that does not travel.
  static Parameters floatParameters() {
    const auto prototype = tamb::CreateParametersCollectionPrototype();
    prototype->AddBoolKey("travels", true, "");
    prototype->AddFloatKey("does not", 1.5F, "");
    return tamb::CreateParametersCollectionInstance(prototype);
  }
  static Parameters emptyParameters() {
    return tamb::CreateParametersCollectionInstance(tamb::CreateParametersCollectionPrototype());
  }
  /// An item that alone makes a list of exactly that many bytes. To be had while the subscriber listens: it
  /// is found out with a smaller list.
  Item itemOfListSize(std::size_t size) {
    // As many bytes are needed for the lengths of both.
    const std::size_t smaller = size < 20'000 ? 5'000 : 20'000;
    auto its = fields();
    Channel::name(its) = std::string(smaller, 'x');
    push({itemWith(its)});
    Channel::name(its).resize(smaller + size - next().ByteSizeLong(), 'x');
    return itemWith(its);
  }

  void push(Batch batch) { Channel::push(*sender_, std::move(batch)); }
  void pushOne(Item item) { Channel::pushOne(*sender_, std::move(item)); }

  /// The next message that was sent; throws when there is none.
  List next() {
    List list;
    std::string errorText;
    if (listener_.poll(0, errorText) != 0) throw std::runtime_error("nothing was sent " + errorText);
    if (listener_.receiveProtoBuf(&list, 65'536) != 0) throw std::runtime_error("something else was sent");
    return list;
  }
  /// The only item of the only message.
  Wire only() {
    const auto list = next();
    if (list.messages_size() != 1) throw std::runtime_error("not one item was sent");
    EXPECT_TRUE(nothingWasSent());
    return list.messages(0);
  }
  bool nothingWasSent() {
    std::string errorText;
    return listener_.poll(0, errorText) == 1;
  }
  /// The names of the items in the next message.
  std::vector<std::string> nextNames() {
    std::vector<std::string> names;
    const auto list = next();
    for (const auto& message : list.messages()) names.push_back(Channel::name(message));
    return names;
  }
  static std::vector<std::string> openSockets() {
    std::vector<std::string> names;
    for (const auto& state : socket::inproc::sockets()) names.push_back(state.name);
    return names;
  }

  /// Checks that the call is refused with that message, reported so, and sends nothing.
  template <class Call>
  void expectFailure(const Call& call, const std::string& message, int line,
                     const std::string& source = Channel::source) {
    const auto recordsBefore = log_.records().size();
    try {
      call();
      ADD_FAILURE() << "is not refused: " << message;
    } catch (const tamb::TAMBRuntimeError& error) {
      EXPECT_EQ(error.what(), message);
    }
    ASSERT_EQ(log_.records().size(), recordsBefore + 1);
    expectRecord(log_.records().back(), message, line, source);
    expectNothingOnItsWay();
  }
  void expectRefused(const Batch& batch, const Refusal& refusal) {
    expectFailure([&] { push(batch); }, messageOf(refusal), refusal.line);
  }
  static std::string messageOf(const Refusal& refusal) {
    return std::string("[") + Channel::header + ": " + refusal.text + refusal.suffix;
  }
  static void expectRecord(const test::LogRecord& record, const std::string& message, int line,
                           const std::string& source = Channel::source) {
    EXPECT_EQ(record.message, message);
    EXPECT_EQ(static_cast<int>(record.level), 2);
    EXPECT_EQ(record.source, source);
    EXPECT_EQ(record.line, std::to_string(line));
    EXPECT_EQ(record.function, "");
  }
  static void expectNothingOnItsWay() {
    for (const auto& state : socket::inproc::sockets()) {
      EXPECT_EQ(state.unsent + state.unreceived, 0U) << state.name;
    }
  }
  /// Checks that a batch is sent, and nothing was sent before it.
  void expectUsable() {
    if (!listener_.isOpen()) listen();
    push({item("next")});
    EXPECT_THAT(nextNames(), testing::ElementsAre("next"));
    EXPECT_TRUE(nothingWasSent());
  }

  const test::CapturedLog log_;
  socket::Socket listener_{"Listener", socket::ClosePolicy::Newest};
  std::optional<typename Channel::Sender> sender_;
};

}  // namespace qor::multiprocess_communication
