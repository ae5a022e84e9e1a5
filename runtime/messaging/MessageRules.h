#pragma once

#include <cstddef>

#include "runtime/messaging/SocketLabel.h"

namespace google::protobuf {
class Message;
}

namespace qor::socket {

/// The encoded size of a message that may be sent, cached in the message for `encode`. Throws
/// std::runtime_error for a null pointer, an incomplete message, or one larger than
/// Socket::maximumMessageSize.
std::size_t checkSendable(const google::protobuf::Message* message, const SocketLabel& label);

/// Writes the encoding of a message into `buffer`, which has the size that `checkSendable` has just returned.
void encode(const google::protobuf::Message& message, void* buffer);

/// The result of parsing a message's content.
enum ReceiveResult : int {
  Complete = 0,
  TooLarge = 1,
  Unreadable = 2,
  Incomplete = 3,
};

/// One received socket message; the socket owns the bytes.
struct ReceivedBytes {
  const void* data;
  std::size_t size;
  /// The number of parts of the message; normally one.
  unsigned int parts;
};

/// Parses a received message. Any result except Complete clears the message and logs one error line. Throws
/// std::runtime_error only for a null pointer.
ReceiveResult decode(const ReceivedBytes& received, unsigned int sizeBound,
                     google::protobuf::Message* message, const SocketLabel& label);

}  // namespace qor::socket
