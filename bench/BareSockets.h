#pragma once

#include <google/protobuf/message.h>

#include <string>

namespace qor::bench {

/// What an engineer would write on libzmq and protobuf without a library in between: blocking calls, one
/// message reused, nothing checked but errors.
class BareSocket {
 public:
  /// A libzmq socket type, bound or connected.
  BareSocket(int type, const std::string& address, bool binds);
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
