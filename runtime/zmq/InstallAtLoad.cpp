#include "runtime/zmq/ZmqSocketFactory.h"

namespace {

/// A program that links only this library of message sockets need not choose an implementation.
[[maybe_unused]] const bool isInstalled = [] {
  qor::socket::installSocketFactory(qor::socket::zmqSocketFactory());
  return true;
}();

}  // namespace
