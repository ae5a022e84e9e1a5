#include "runtime/zmq/ConcurrentReplier.h"

#include <stdexcept>
#include <utility>

#include "qor/socket/Protocol.h"
#include "runtime/messaging/MessageRules.h"
#include "runtime/zmq/ReplierSocket.h"

namespace qor::socket {

namespace {

constexpr std::chrono::seconds timeForUnsent{1};

}  // namespace

struct ConcurrentReplier::Request::Content {
  ReplierSocket::Envelope envelope;
};

ConcurrentReplier::Request::Request(std::unique_ptr<Content> content) : content_(std::move(content)) {}
ConcurrentReplier::Request::Request(Request&& other) noexcept = default;
ConcurrentReplier::Request& ConcurrentReplier::Request::operator=(Request&& other) noexcept = default;
ConcurrentReplier::Request::~Request() = default;

struct ConcurrentReplier::Implementation {
  Implementation(const std::string& name, const SocketEndpoint& endpoint)
      : label{.name = name, .protocol = Protocol::Replier, .endpoint = endpoint.toString(Protocol::Plain)},
        socket(label, endpoint) {}

  const SocketLabel label;
  ReplierSocket socket;
};

ConcurrentReplier::ConcurrentReplier(const std::string& name, const SocketEndpoint& endpoint)
    : implementation_(std::make_unique<Implementation>(name, endpoint)) {}

ConcurrentReplier::~ConcurrentReplier() { implementation_->socket.close(timeForUnsent); }

std::optional<ConcurrentReplier::Request> ConcurrentReplier::receive(std::chrono::milliseconds timeOut,
                                                                     google::protobuf::Message& message,
                                                                     unsigned int sizeBound) {
  ReplierSocket& socket = implementation_->socket;
  std::string errorText;
  const int polled = socket.poll(timeOut, errorText);
  socket.resume();
  if (polled == 1) return std::nullopt;
  if (polled != 0) throw std::runtime_error(errorText);
  socket.receive(&message, sizeBound);
  return Request(std::make_unique<Request::Content>(Request::Content{socket.takeEnvelope()}));
}

void ConcurrentReplier::answer(Request request, const google::protobuf::Message& message) {
  const std::size_t size = checkSendable(&message, implementation_->label);
  implementation_->socket.answer(request.content_->envelope, message, size);
}

void ConcurrentReplier::wake() noexcept { implementation_->socket.interrupt(); }

}  // namespace qor::socket
