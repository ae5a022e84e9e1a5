#pragma once

#include <google/protobuf/message.h>

#include <string>

namespace qor::bench {

/// What a REQ socket does about a peer that dies or falls silent.
enum class Guarantees {
  None,        ///< libzmq's defaults: it waits for the reply for ever
  AsOursGives  ///< it can ask again, tells late replies apart, and notices within 3 s that the peer is dead
};

/// What an engineer would write on libzmq and protobuf without a library in between: blocking calls, one
/// message reused, nothing checked but errors. Publishers wait for slow subscribers and drop nothing.
class BareSocket {
 public:
  /// A libzmq socket type, bound or connected. Only ZMQ_REQ takes guarantees.
  BareSocket(int type, const std::string& address, bool binds, Guarantees guarantees = Guarantees::None);
  ~BareSocket();
  BareSocket(const BareSocket&) = delete;
  BareSocket& operator=(const BareSocket&) = delete;

  void send(const google::protobuf::Message& message);
  /// False when the sockets have been shut down.
  bool receive(google::protobuf::Message& message);
  /// Waits until a subscriber of this XPUB has subscribed.
  void waitForSubscriber();

 private:
  void setOption(int option, int value);

  void* socket_;
};

/// Ends every receive for good, under way or to come, on any thread.
void shutDownBareSockets();

}  // namespace qor::bench
