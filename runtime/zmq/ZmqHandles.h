#pragma once

#include <zmq.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "runtime/base/Deadline.h"

namespace qor::socket {

/// Throws for what libzmq has just reported through errno: ZmqContextTerminationException for a context that
/// is being shut down, std::runtime_error for everything else. `who` and `failure` lead the text.
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

  /// The same content, which large messages share.
  ZmqMessage copy();

  void* data() { return ::zmq_msg_data(&message_); }
  std::size_t size() const { return ::zmq_msg_size(&message_); }
  /// Another part of the same message follows.
  bool hasMore() const { return ::zmq_msg_more(&message_) != 0; }
  zmq_msg_t* get() { return &message_; }

 private:
  zmq_msg_t message_{};
};

/// Owns one libzmq socket. libzmq lets one thread at a time use it.
class ZmqSocket {
 public:
  /// Throws as throwZmqError.
  ZmqSocket(void* context, int type, std::string description);
  ~ZmqSocket();
  ZmqSocket(const ZmqSocket&) = delete;
  ZmqSocket& operator=(const ZmqSocket&) = delete;

  /// For what else libzmq offers, which may take in what the descriptor tells of.
  void* get() {
    isIdle_ = false;
    return socket_;
  }

  void setOption(int option, int value);
  void setOption(int option, const std::string& value);

  /// Becomes readable when the socket has something to look at; then, and before each wait, the socket itself
  /// has to be asked until it has nothing more, for the descriptor tells of changes only.
  int descriptor() const { return descriptor_; }

  /// Takes the next part without waiting; false when there is none. Throws as throwZmqError.
  bool tryReceive(ZmqMessage& part);
  enum class Received { Part, Nothing, Signal };
  /// Takes the next part, and waits for it if need be, without limit when there is no time-out. A signal that
  /// this thread handles ends the wait. Threads that wait in vain again and again wake together: a time-out
  /// of 100 ms or more may end up to 10 ms early, never late. Throws as throwZmqError.
  Received receive(ZmqMessage& part, std::optional<std::chrono::milliseconds> timeOut);
  enum class Sent { Yes, NoRoom, NoRoute };
  /// Sends a part without waiting; unless the answer is Yes, the part is unchanged. NoRoute is an answer to
  /// somebody who has gone. Throws as throwZmqError.
  Sent trySend(ZmqMessage& part, bool moreFollow = false);
  /// Lets the socket take in what its I/O thread has told it, which a send does now and then only.
  void processPendingEvents();

 private:
  Received receiveWhenWoken(ZmqMessage& part, std::chrono::milliseconds timeOut);

  void* socket_;
  int descriptor_ = -1;
  /// The last look found nothing, and nobody has used the socket since: whatever comes makes the descriptor
  /// readable.
  bool isIdle_ = false;
  int receiveTimeOut_ = -1;  ///< as libzmq has it
  std::string description_;
};

}  // namespace qor::socket
