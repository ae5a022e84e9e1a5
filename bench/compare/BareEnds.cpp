#include "bench/compare/BareEnds.h"

#include <zmq.h>

#include <cstdio>
#include <exception>
#include <thread>
#include <utility>

#include "TcpEngine.pb.h"
#include "bench/BareSockets.h"
#include "bench/compare/Conversions.h"

namespace qor::bench {

namespace {

/// Receives messages of one type into one reused message, on its own thread, until the bare sockets are shut
/// down.
template <class Message>
class Reception {
 public:
  template <class Handle>
  Reception(BareSocket& socket, Handle handle)
      : thread_([&socket, handle = std::move(handle)] {
          try {
            for (Message message; socket.receive(message);) handle(message);
          } catch (const std::exception& error) {
            // The thread that waits for messages reports that they are missing.
            std::fprintf(stderr, "bare reception ended: %s\n", error.what());
          }
        }) {}

 private:
  std::jthread thread_;
};

/// Called before the receiving threads are joined.
class ShutDown {
 public:
  ShutDown() = default;
  ~ShutDown() { shutDownBareSockets(); }
  ShutDown(const ShutDown&) = delete;
  ShutDown& operator=(const ShutDown&) = delete;
};

Guarantees guaranteesOf(const Case& run) {
  return run.library == Library::BareGuarded ? Guarantees::AsOursGives : Guarantees::None;
}

Conversion conversionOf(const Case& run) {
  return run.library == Library::BareValues ? Conversion::PlainValues : Conversion::Objects;
}

class BareHostEnd : public HostEnd {
 public:
  BareHostEnd(const Case& run, const Addresses& addresses, Arrived arrived)
      : conversion_(conversionOf(run)),
        requests_(ZMQ_REQ, addresses.request, false, guaranteesOf(run)),
        notifications_(ZMQ_SUB, addresses.notification, false),
        commands_(ZMQ_XPUB, addresses.command, true),
        reception_(notifications_,
                   [this, arrived = std::move(arrived)](const wire::NotificationMessageList& list) {
                     read(list, arrived, conversion_);
                   }) {
    commands_.waitForSubscriber();
  }
  void ping() override {
    request_.set_type(wire::EngineFrontEndRequest::Ping);
    request_.set_timeoutmilliseconds(1'000);
    requests_.send(request_);
    requests_.receive(reply_);
  }
  void push(const CommandList& commands, bool /*moreFollow*/) override {
    write(commands, list_, conversion_);
    commands_.send(list_);
  }

 private:
  const Conversion conversion_;
  BareSocket requests_;
  BareSocket notifications_;
  BareSocket commands_;
  wire::EngineFrontEndRequest request_;
  wire::EngineBackEndReply reply_;
  wire::CommandMessageList list_;
  Reception<wire::NotificationMessageList> reception_;
  ShutDown shutDown_;
};

class BareEngineEnd : public EngineEnd {
 public:
  BareEngineEnd(const Case& run, const Addresses& addresses, Arrived arrived)
      : conversion_(conversionOf(run)),
        requests_(ZMQ_REP, addresses.request, true),
        notifications_(ZMQ_XPUB, addresses.notification, true),
        commands_(ZMQ_SUB, addresses.command, false),
        requestReception_(requests_, [this](const wire::EngineFrontEndRequest&) { requests_.send(reply_); }),
        commandReception_(commands_,
                          [this, arrived = std::move(arrived)](const wire::CommandMessageList& list) {
                            read(list, arrived, conversion_);
                          }) {
    notifications_.waitForSubscriber();
  }
  void push(const NotificationList& notifications, bool /*moreFollow*/) override {
    write(notifications, list_, conversion_);
    notifications_.send(list_);
  }

 private:
  static wire::EngineBackEndReply success() {
    wire::EngineBackEndReply reply;
    reply.set_type(wire::EngineBackEndReply::Success);
    reply.set_replystring("");
    reply.set_errorstring("");
    return reply;
  }

  const Conversion conversion_;
  BareSocket requests_;
  BareSocket notifications_;
  BareSocket commands_;
  const wire::EngineBackEndReply reply_ = success();
  wire::NotificationMessageList list_;
  Reception<wire::EngineFrontEndRequest> requestReception_;
  Reception<wire::CommandMessageList> commandReception_;
  ShutDown shutDown_;
};

}  // namespace

std::unique_ptr<HostEnd> makeBareHostEnd(const Case& run, const Addresses& addresses, Arrived arrived) {
  return std::make_unique<BareHostEnd>(run, addresses, std::move(arrived));
}

std::unique_ptr<EngineEnd> makeBareEngineEnd(const Case& run, const Addresses& addresses, Arrived arrived) {
  return std::make_unique<BareEngineEnd>(run, addresses, std::move(arrived));
}

}  // namespace qor::bench
