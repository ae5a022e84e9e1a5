#pragma once

#include <chrono>
#include <optional>

#include "runtime/zmq/Waker.h"
#include "runtime/zmq/ZmqOpenSocket.h"

namespace qor::socket {

/// The common part of Subscriber and Replier: they wait for messages of any peer. A poll takes the next
/// message out of libzmq and the following receive returns it, so that both cost no more than one blocking
/// receive.
class ReceivingSocket : public ZmqOpenSocket {
 public:
  int poll(std::chrono::milliseconds timeOut, std::string& errorText) override;
  int receive(google::protobuf::Message* message, unsigned int sizeBound) override;
  void interrupt() noexcept override { waker_.wake(); }
  /// Resets an interrupt that has ended a wait: the next one waits again.
  void resume() { interrupted_ = false; }

 protected:
  ReceivingSocket(int type, const SocketLabel& label, const ConnectionLimits& limits);

  /// The received message.
  enum class Taken { Message, Unusable, WakeUp };
  /// Takes the rest of a message whose first part is given: its content, which replaces the first part, and
  /// the number of its parts. Logs unusable messages.
  virtual Taken takeRest(ZmqMessage& content, unsigned int& parts) = 0;
  /// Called after a wait of at most 100 ms without result: nothing is left to be read.
  virtual void maintainConnection() {}
  /// Called when the message taken last is returned to the owner.
  virtual void onReceived() {}

 private:
  enum class Waited { Ready, Interrupted, TooLong };
  Waited waitForMessage(std::optional<std::chrono::milliseconds> timeOut);

  Waker waker_;
  bool interrupted_ = false;
  bool ready_ = false;  ///< content_ holds a message that was not returned yet
  ZmqMessage content_;
  unsigned int parts_ = 0;
};

}  // namespace qor::socket
