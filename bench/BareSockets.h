#pragma once

#include <google/protobuf/message.h>

#include <string>

namespace qor::bench {

/// How a REQ socket handles a peer that dies or falls silent.
enum class Guarantees {
  None,        ///< libzmq's defaults: waits for the reply without limit
  AsOursGives  ///< can send again, recognises late replies, and notices a dead peer within 3 s
};

/// A direct implementation on libzmq and protobuf: blocking calls, one reused message, no checks except for
/// errors. Publishers wait for slow subscribers and drop nothing.
class BareSocket {
 public:
  /// A libzmq socket type, bound or connected. Only ZMQ_REQ uses the guarantees.
  BareSocket(int type, const std::string& address, bool binds, Guarantees guarantees = Guarantees::None);
  ~BareSocket();
  BareSocket(const BareSocket&) = delete;
  BareSocket& operator=(const BareSocket&) = delete;

  void send(const google::protobuf::Message& message);
  /// False if the sockets have been shut down.
  bool receive(google::protobuf::Message& message);
  /// Waits until a subscriber of this XPUB has subscribed.
  void waitForSubscriber();

 private:
  void setOption(int option, int value);

  void* socket_;
};

/// Ends every current and future receive, on any thread.
void shutDownBareSockets();

}  // namespace qor::bench
