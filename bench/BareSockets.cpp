#include "bench/BareSockets.h"

#include <zmq.h>

#include <stdexcept>

namespace qor::bench {

namespace {

void* context() {
  static void* const instance = ::zmq_ctx_new();
  return instance;
}

void require(bool succeeded) {
  if (!succeeded) throw std::runtime_error(::zmq_strerror(::zmq_errno()));
}

}  // namespace

BareSocket::BareSocket(int type, const std::string& address, bool binds, Guarantees guarantees)
    : socket_(::zmq_socket(context(), type)) {
  require(socket_ != nullptr);
  setOption(ZMQ_LINGER, 0);
  // Makes a benchmark fail if its other side has failed. Costs a blocking receive one clock read.
  setOption(ZMQ_RCVTIMEO, 60'000);
  if (type == ZMQ_XPUB) setOption(ZMQ_XPUB_NODROP, 1);
  if (type == ZMQ_SUB) require(::zmq_setsockopt(socket_, ZMQ_SUBSCRIBE, "", 0) == 0);
  if (guarantees == Guarantees::AsOursGives) {
    setOption(ZMQ_REQ_RELAXED, 1);
    setOption(ZMQ_REQ_CORRELATE, 1);
    setOption(ZMQ_HEARTBEAT_IVL, 1'000);
    setOption(ZMQ_HEARTBEAT_TIMEOUT, 1'800);
  }
  require((binds ? ::zmq_bind : ::zmq_connect)(socket_, address.c_str()) == 0);
}

void BareSocket::setOption(int option, int value) {
  require(::zmq_setsockopt(socket_, option, &value, sizeof value) == 0);
}

BareSocket::~BareSocket() { ::zmq_close(socket_); }

void BareSocket::send(const google::protobuf::Message& message) {
  zmq_msg_t encoded;
  require(::zmq_msg_init_size(&encoded, message.ByteSizeLong()) == 0);
  message.SerializeWithCachedSizesToArray(static_cast<std::uint8_t*>(::zmq_msg_data(&encoded)));
  require(::zmq_msg_send(&encoded, socket_, 0) >= 0);
}

bool BareSocket::receive(google::protobuf::Message& message) {
  zmq_msg_t encoded;
  ::zmq_msg_init(&encoded);
  if (::zmq_msg_recv(&encoded, socket_, 0) < 0) {
    require(::zmq_errno() == ETERM);
    return false;
  }
  if (!message.ParseFromArray(::zmq_msg_data(&encoded), static_cast<int>(::zmq_msg_size(&encoded)))) {
    throw std::runtime_error("unreadable message");
  }
  ::zmq_msg_close(&encoded);
  return true;
}

void BareSocket::waitForSubscriber() {
  char subscription = 0;
  require(::zmq_recv(socket_, &subscription, sizeof subscription, 0) >= 0);
}

void shutDownBareSockets() { ::zmq_ctx_shutdown(context()); }

}  // namespace qor::bench
