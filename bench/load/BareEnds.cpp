#include "bench/load/BareEnds.h"

#include <zmq.h>

#include <cstdio>
#include <exception>
#include <thread>

#include "CommandAndNotification.pb.h"
#include "Serializers.h"
#include "bench/BareSockets.h"
#include "bench/load/MessagePool.h"
#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tamb/LogContext.h"

namespace qor::bench {

namespace {

namespace proto = multiprocess_communication::proto;

// Parameters of any kind are turned into messages and back by the library's own functions: what is compared
// is the way of the messages, not who writes the better conversion.
using multiprocess_communication::Serializers::ParametersCollectionInstanceFromProtoBuf;
using multiprocess_communication::Serializers::ParametersCollectionInstanceToProtoBuf;

void write(const tamb::MediaTime& time, proto::MediaTime& message) {
  message.mutable_editrate()->set_numerator(time.GetEditRate().GetNumerator());
  message.mutable_editrate()->set_denominator(time.GetEditRate().GetDenominator());
  message.set_timenumber(time.GetTimeNumber());
}

tamb::MediaTime read(const proto::MediaTime& message) {
  return {tamb::EditRate(message.editrate().denominator(), message.editrate().numerator()),
          message.timenumber(), nullptr};
}

void write(const tamb::ICommandMessage& command, proto::CommandMessage& message) {
  write(command.GetTime(), *message.mutable_mediatime());
  message.set_commandname(command.GetCommandName());
  message.set_commandid(command.GetCommandId());
  message.set_workflowmanagerid(command.GetWorkflowManagerId());
  message.set_engineid(command.GetEngineId());
  message.set_stepid(command.GetStepId());
  if (const auto parameters = command.GetCommandArgs()) {
    ParametersCollectionInstanceToProtoBuf(parameters, *message.mutable_commandargs());
  }
}

std::shared_ptr<const tamb::ICommandMessage> read(const proto::CommandMessage& message) {
  return std::make_shared<tamb::CommandMessage>(tamb::CommandFields{
      .commandArgs = message.has_commandargs()
                         ? ParametersCollectionInstanceFromProtoBuf(message.commandargs())
                         : nullptr,
      .time = read(message.mediatime()),
      .commandName = message.commandname(),
      .commandId = static_cast<unsigned int>(message.commandid()),
      .workflowManagerId = message.workflowmanagerid(),
      .engineId = static_cast<unsigned int>(message.engineid()),
      .stepId = message.stepid(),
  });
}

void write(const tamb::INotificationMessage& notification, proto::NotificationMessage& message) {
  write(notification.GetTime(), *message.mutable_time());
  message.set_workflowstep(notification.GetStepId());
  message.set_notificationline(notification.GetNotificationLine());
  message.set_id(notification.GetNotificationId());
  message.set_commandid(notification.GetCommandId());
  message.set_workflowmanagerid(notification.GetWorkflowManagerId());
  message.set_engineid(notification.GetEngineId());
  if (const auto object = notification.GetNotificationObject()) {
    ParametersCollectionInstanceToProtoBuf(object, *message.mutable_notificationobject());
  }
}

std::shared_ptr<const tamb::INotificationMessage> read(const proto::NotificationMessage& message) {
  return std::make_shared<tamb::NotificationMessage>(tamb::NotificationFields{
      .time = read(message.time()),
      .stepId = message.workflowstep(),
      .notificationLine = message.notificationline(),
      .notificationObject = message.has_notificationobject()
                                ? ParametersCollectionInstanceFromProtoBuf(message.notificationobject())
                                : nullptr,
      .notificationId = tamb::GetUUIDString(),
      .commandId = static_cast<unsigned int>(message.commandid()),
      .workflowManagerId = message.workflowmanagerid(),
      .engineId = static_cast<unsigned int>(message.engineid()),
  });
}

/// Writes into a list that is used again and again, and checks nothing.
template <class Traits, class List>
class BareSender : public Sender {
 public:
  BareSender(const LoadCase& load, const socket::SocketEndpoint& endpoint)
      : pool_(load), socket_(ZMQ_XPUB, endpoint.toString(socket::Protocol::Plain), true) {
    socket_.waitForSubscriber();
  }
  void push(std::size_t first) override { pushMessages(pool_.listAt(first)); }

 private:
  /// By value, as the framework's interfaces have it.
  void pushMessages(typename MessagePool<Traits>::List messages) {
    list_.Clear();
    for (const auto& message : messages) write(*message, *list_.add_messages());
    socket_.send(list_);
  }

  const MessagePool<Traits> pool_;
  BareSocket socket_;
  List list_;
};

/// Parses into a list that is used again and again.
template <class List>
class BareReceiver : public Receiver {
 public:
  BareReceiver(const LoadCase& load, const socket::SocketEndpoint& endpoint, Arrived arrived)
      : socket_(ZMQ_SUB, endpoint.toString(socket::Protocol::Plain), false),
        thread_([this, arrived = std::move(arrived), total = load.total()] { receive(arrived, total); }) {}
  ~BareReceiver() override { thread_.join(); }
  BareReceiver(const BareReceiver&) = delete;
  BareReceiver& operator=(const BareReceiver&) = delete;

 private:
  /// What fails ends reception; who waits for what does not come any more tells of it.
  void receive(const Arrived& arrived, std::size_t total) {
    try {
      List list;
      for (std::size_t received = 0; received < total;
           received += static_cast<std::size_t>(list.messages_size())) {
        socket_.receive(list);
        for (const auto& message : list.messages()) arrive(*read(message), arrived);
      }
    } catch (const std::exception& error) {
      std::fprintf(stderr, "bare reception ended: %s\n", error.what());
    }
  }

  BareSocket socket_;
  std::thread thread_;
};

}  // namespace

std::unique_ptr<Sender> makeBareSender(const LoadCase& load, const socket::SocketEndpoint& endpoint) {
  if (load.channel == Channel::Commands) {
    return std::make_unique<BareSender<Commands, proto::CommandMessageList>>(load, endpoint);
  }
  return std::make_unique<BareSender<Notifications, proto::NotificationMessageList>>(load, endpoint);
}

std::unique_ptr<Receiver> makeBareReceiver(const LoadCase& load, const socket::SocketEndpoint& endpoint,
                                           const Arrived& arrived) {
  if (load.channel == Channel::Commands) {
    return std::make_unique<BareReceiver<proto::CommandMessageList>>(load, endpoint, arrived);
  }
  return std::make_unique<BareReceiver<proto::NotificationMessageList>>(load, endpoint, arrived);
}

}  // namespace qor::bench
