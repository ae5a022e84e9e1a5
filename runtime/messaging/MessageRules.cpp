#include "runtime/messaging/MessageRules.h"

#include <fmt/format.h>
#include <google/protobuf/message.h>

#include <stdexcept>
#include <string>

#include "qor/socket/Socket.h"
#include "qor/utils/Log.h"

namespace qor::socket {

namespace {

ReceiveResult refuse(ReceiveResult result, google::protobuf::Message& message, const SocketLabel& label,
                     const std::string& reason) {
  message.Clear();
  utils::logError(fmt::format("{}: dropped a message that is not a {}: {}", label.text(),
                              message.GetDescriptor()->name(), reason));
  return result;
}

}  // namespace

std::size_t checkSendable(const google::protobuf::Message* message, const SocketLabel& label) {
  if (message == nullptr) throw std::runtime_error(label.text() + ": cannot send a null message");
  if (!message->IsInitialized()) {
    throw std::runtime_error(fmt::format("{}: cannot send an incomplete {}: missing {}", label.text(),
                                         message->GetDescriptor()->name(),
                                         message->InitializationErrorString()));
  }
  const std::size_t size = message->ByteSizeLong();
  if (size > Socket::maximumMessageSize) {
    throw std::runtime_error(fmt::format("{}: cannot send a {} of {} bytes: the limit is {} bytes",
                                         label.text(), message->GetDescriptor()->name(), size,
                                         Socket::maximumMessageSize));
  }
  return size;
}

void encode(const google::protobuf::Message& message, void* buffer) {
  message.SerializeWithCachedSizesToArray(static_cast<std::uint8_t*>(buffer));
}

ReceiveResult decode(const ReceivedBytes& received, unsigned int sizeBound,
                     google::protobuf::Message* message, const SocketLabel& label) {
  if (message == nullptr) throw std::runtime_error(label.text() + ": cannot receive into a null message");
  if (received.parts != 1) {
    return refuse(Unreadable, *message, label,
                  fmt::format("it has {} parts instead of one, with {} bytes in the first", received.parts,
                              received.size));
  }
  if (received.size > sizeBound) {
    return refuse(TooLarge, *message, label,
                  fmt::format("{} bytes, the limit is {} bytes", received.size, sizeBound));
  }
  if (!message->ParsePartialFromArray(received.data, static_cast<int>(received.size))) {
    return refuse(Unreadable, *message, label, fmt::format("its {} bytes cannot be parsed", received.size));
  }
  if (!message->IsInitialized()) {
    return refuse(Incomplete, *message, label,
                  fmt::format("its {} bytes lack {}", received.size, message->InitializationErrorString()));
  }
  return Complete;
}

}  // namespace qor::socket
