#pragma once

#include <zmq.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "runtime/base/Deadline.h"

namespace qor::socket {

/// Throws the error that libzmq has just reported through errno: ZmqContextTerminationException for a context
/// that is being shut down, std::runtime_error for all others. `who` and `failure` begin the text.
[[noreturn]] void throwZmqError(const std::string& who, const char* failure);

using base::Deadline;

/// One libzmq message. Owns its content; moving it moves the content without a copy.
class ZmqMessage {
 public:
  ZmqMessage() noexcept { ::zmq_msg_init(&message_); }
  /// Room for `size` bytes; throws std::bad_alloc.
  explicit ZmqMessage(std::size_t size);
  ZmqMessage(ZmqMessage&& other) noexcept : ZmqMessage() { ::zmq_msg_move(&message_, &other.message_); }
  ZmqMessage& operator=(ZmqMessage&& other) noexcept {
    ::zmq_msg_move(&message_, &other.message_);
    return *this;
  }
  ZmqMessage(const ZmqMessage&) = delete;
  ZmqMessage& operator=(const ZmqMessage&) = delete;
  ~ZmqMessage() { ::zmq_msg_close(&message_); }

  /// The same content; large messages share it.
  ZmqMessage copy();

  void* data() { return ::zmq_msg_data(&message_); }
  std::size_t size() const { return ::zmq_msg_size(&message_); }
  /// Whether another part of the same message follows.
  bool hasMore() const { return ::zmq_msg_more(&message_) != 0; }
  zmq_msg_t* get() { return &message_; }

 private:
  zmq_msg_t message_{};
};

/// Owns one libzmq socket. Only one thread at a time may use it.
class ZmqSocket {
 public:
  /// Throws as throwZmqError.
  ZmqSocket(void* context, int type, std::string description);
  ~ZmqSocket();
  ZmqSocket(const ZmqSocket&) = delete;
  ZmqSocket& operator=(const ZmqSocket&) = delete;

  /// For other functions of libzmq, which may consume an event of the descriptor.
  void* get() {
    isIdle_ = false;
    return socket_;
  }

  void setOption(int option, int value);
  void setOption(int option, const std::string& value);

  /// Becomes readable when the socket has events; then, and before each wait, query the socket itself until
  /// it has none left, because the descriptor only signals changes.
  int descriptor() const { return descriptor_; }

  /// Takes the next part without waiting; false if there is none. Throws as throwZmqError.
  bool tryReceive(ZmqMessage& part);
  enum class Received { Part, Nothing, Signal };
  /// Takes the next part, and waits for it if need be, without limit if there is no time-out. A signal that
  /// this thread handles ends the wait. Threads whose waits keep timing out wake together: a time-out of 100
  /// ms or more may end up to 10 ms early, but not late. Throws as throwZmqError.
  Received receive(ZmqMessage& part, std::optional<std::chrono::milliseconds> timeOut);
  enum class Sent { Yes, NoRoom, NoRoute };
  /// Sends a part without waiting; unless the result is Yes, the part is unchanged. NoRoute means that the
  /// receiver of an answer has disconnected. Throws as throwZmqError.
  Sent trySend(ZmqMessage& part, bool moreFollow = false);
  /// Makes the socket process its I/O thread's commands, which a send does only from time to time.
  void processPendingEvents();

 private:
  Received receiveWhenWoken(ZmqMessage& part, std::chrono::milliseconds timeOut);

  void* socket_;
  int descriptor_ = -1;
  /// Whether the last check found nothing and the socket has not been used since: then every event makes the
  /// descriptor readable.
  bool isIdle_ = false;
  int receiveTimeOut_ = -1;  ///< in libzmq's format
  std::string description_;
};

}  // namespace qor::socket
