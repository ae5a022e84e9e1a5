#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "TcpEngine.pb.h"
#include "qor/socket/Socket.h"
#include "runtime/inproc/Network.h"

namespace qor::socket::inproc {

namespace proto = multiprocess_communication::proto;

/// Restores the network, and checks that no socket is left in it.
class NetworkTest : public ::testing::Test {
 public:
  ~NetworkTest() override { reset(); }

 protected:
  void TearDown() override {
    replier_.close();
    requester_.close();
    publisher_.close();
    subscriber_.close();
    EXPECT_TRUE(sockets().empty());
  }

  void openRequesterAndReplier() {
    replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
    requester_.createAndConnect(Protocol::Requester, endpoint_, 0);
  }
  void openPublisherAndSubscriber() {
    publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
    subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  }

  static void send(Socket& socket, std::uint32_t number) {
    proto::EngineFrontEndRequest message;
    message.set_type(proto::EngineFrontEndRequest::Ping);
    message.set_timeoutmilliseconds(number);
    socket.sendProtoBuf(&message);
  }
  /// The number in the next message; 0 if it cannot be parsed.
  static std::uint32_t receive(Socket& socket) {
    proto::EngineFrontEndRequest message;
    return socket.receiveProtoBuf(&message, Socket::maximumMessageSize) == 0 ? message.timeoutmilliseconds()
                                                                             : 0;
  }
  static int poll(Socket& socket) {
    std::string errorText;
    return socket.poll(0, errorText);
  }
  static SocketState stateOf(const std::string& name) {
    for (SocketState& state : sockets()) {
      if (state.name == name) return state;
    }
    ADD_FAILURE() << "no socket is called " << name;
    return {};
  }

  const std::string address_ = "inproc://network-test";
  SocketEndpoint endpoint_ = SocketEndpoint::FromString(address_);
  Socket publisher_{"Publisher", ClosePolicy::Newest};
  Socket subscriber_{"Subscriber", ClosePolicy::Newest};
  Socket replier_{"Replier", ClosePolicy::Newest};
  Socket requester_{"Requester", ClosePolicy::Newest};
};

}  // namespace qor::socket::inproc
