#include "runtime/zmq/XpubSubscribers.h"

#include <string_view>

namespace qor::socket {

namespace {

/// What XPUB receives when a peer subscribes to everything.
constexpr std::string_view subscription{"\1", 1};

}  // namespace

XpubSubscribers::XpubSubscribers(ZmqSocket& socket, Context& context, const std::string& description)
    : socket_(socket), monitor_(socket, context, ZMQ_EVENT_DISCONNECTED, description) {
  socket_.setOption(ZMQ_XPUB_MANUAL, 1);
}

std::optional<Subscribers::Message> XpubSubscribers::takeMessage() {
  ZmqMessage message;
  if (!socket_.tryReceive(message)) return std::nullopt;
  const std::string_view content(static_cast<const char*>(message.data()), message.size());
  const int descriptor = ::zmq_msg_get(message.get(), ZMQ_SRCFD);
  return Message{.descriptor = descriptor < 0 ? Message::noDescriptor : descriptor,
                 .isSubscription = content == subscription};
}

std::optional<int> XpubSubscribers::takeEnd() {
  const auto event = monitor_.take();
  return event ? std::optional(event->value) : std::nullopt;
}

void XpubSubscribers::admitLatest() { socket_.setOption(ZMQ_SUBSCRIBE, std::string()); }

}  // namespace qor::socket
