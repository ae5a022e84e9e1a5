#pragma once

#include <cstddef>

#include "runtime/messaging/SocketLabel.h"

namespace google::protobuf {
class Message;
}

namespace qor::socket {

/// The encoded size of a message that may be sent, kept in the message for `encode`. Throws
/// std::runtime_error for a null pointer, an incomplete message and one above Socket::maximumMessageSize.
std::size_t checkSendable(const google::protobuf::Message* message, const SocketLabel& label);

/// Writes the encoding of a message into `buffer`, which has the size that `checkSendable` has just returned.
void encode(const google::protobuf::Message& message, void* buffer);

/// What a receive says of a message's content.
enum ReceiveResult : int {
  Complete = 0,
  TooLarge = 1,
  Unreadable = 2,
  Incomplete = 3,
};

/// One socket message as it came in; the bytes are the socket's.
struct ReceivedBytes {
  const void* data;
  std::size_t size;
  /// How many parts the message had; one is the rule.
  unsigned int parts;
};

/// Parses what was received. Anything but Complete leaves the message cleared and one error line behind.
/// Throws std::runtime_error for a null pointer only.
ReceiveResult decode(const ReceivedBytes& received, unsigned int sizeBound,
                     google::protobuf::Message* message, const SocketLabel& label);

}  // namespace qor::socket
