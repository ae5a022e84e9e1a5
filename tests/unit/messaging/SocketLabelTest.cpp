#include <gtest/gtest.h>

#include "runtime/messaging/SocketLabel.h"

namespace qor::socket {
namespace {

TEST(SocketLabel, NamesTheSocketItsRoleAndItsEndpoint) {
  const SocketLabel label{
      .name = "StatusSocket", .protocol = Protocol::Subscriber, .endpoint = "tcp://127.0.0.1:5"};
  EXPECT_EQ(label.text(), "StatusSocket (Subscriber tcp://127.0.0.1:5)");
}

TEST(SocketLabel, StatesThatThereIsNoEndpointYet) {
  const SocketLabel label{.name = "StatusSocket"};
  EXPECT_EQ(label.text(), "StatusSocket (no endpoint)");
}

TEST(RoleName, IsTheNameOrTheNumberOfAnInvalidRole) {
  EXPECT_EQ(roleName(Protocol::Plain), "Plain");
  EXPECT_EQ(roleName(Protocol::Publisher), "Publisher");
  EXPECT_EQ(roleName(Protocol::Subscriber), "Subscriber");
  EXPECT_EQ(roleName(Protocol::Replier), "Replier");
  EXPECT_EQ(roleName(Protocol::Requester), "Requester");
  EXPECT_EQ(roleName(static_cast<Protocol::Protocol>(7)), "protocol 7");
}

}  // namespace
}  // namespace qor::socket
