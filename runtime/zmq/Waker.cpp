#include "runtime/zmq/Waker.h"

#include <exception>

#include "qor/utils/Log.h"
#include "runtime/base/RandomUuid.h"

namespace qor::socket {

namespace {

/// Within a process libzmq passes on the address of a constant message's content: this one means wake up.
char orderMark = 0;

}  // namespace

Waker::Waker(ZmqSocket& sleeper, int sleeperType, void* context, const std::string& description)
    : peer_(context, sleeperType == ZMQ_SUB ? ZMQ_XPUB : ZMQ_DEALER, description) {
  const std::string address = "inproc://waker-" + base::randomUuid();
  peer_.setOption(ZMQ_LINGER, 0);
  if (::zmq_bind(peer_.get(), address.c_str()) != 0 || ::zmq_connect(sleeper.get(), address.c_str()) != 0) {
    throwZmqError(description, "cannot create its wake-up socket");
  }
}

void Waker::wake() noexcept {
  const base::Lock lock(mutex_);
  try {
    // An XPUB has to receive the subscription before it sends.
    peer_.processPendingEvents();
    ZmqMessage order;
    ::zmq_msg_init_data(order.get(), &orderMark, sizeof orderMark, nullptr, nullptr);
    peer_.trySend(order);
  } catch (const std::exception& error) {
    // The context is being shut down, which ends all waits.
    utils::logDebug(error.what());
  }
}

bool Waker::isOrder(ZmqMessage& part) { return part.data() == &orderMark; }

}  // namespace qor::socket
