#pragma once

#include <chrono>
#include <optional>

#include "runtime/zmq/Waker.h"
#include "runtime/zmq/ZmqOpenSocket.h"

namespace qor::socket {

/// What Subscriber and Replier share: they wait for whoever may send. A poll takes the next message out of
/// libzmq and the receive that follows hands it over, so that the two cost no more than one blocking receive.
class ReceivingSocket : public ZmqOpenSocket {
 public:
  int poll(std::chrono::milliseconds timeOut, std::string& errorText) override;
  int receive(google::protobuf::Message* message, unsigned int sizeBound) override;
  void interrupt() noexcept override { waker_.wake(); }
  /// Takes an interrupt back that has ended a wait: the next one waits again.
  void resume() { interrupted_ = false; }

 protected:
  ReceivingSocket(int type, const SocketLabel& label, const ConnectionLimits& limits);

  /// What came in.
  enum class Taken { Message, Unusable, WakeUp };
  /// Takes the rest of a message whose first part is given: its content, which takes the first part's place,
  /// and how many parts that has. What is unusable has been logged.
  virtual Taken takeRest(ZmqMessage& content, unsigned int& parts) = 0;
  /// Called when a wait, of at most 100 ms, was in vain: there is nothing left to be read.
  virtual void maintainConnection() {}
  /// The message taken last is being handed over.
  virtual void onReceived() {}

 private:
  enum class Waited { Ready, Interrupted, TooLong };
  Waited waitForMessage(std::optional<std::chrono::milliseconds> timeOut);

  Waker waker_;
  bool interrupted_ = false;
  bool ready_ = false;  ///< content_ holds a message that has not been handed over
  ZmqMessage content_;
  unsigned int parts_ = 0;
};

}  // namespace qor::socket
