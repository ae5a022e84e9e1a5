#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "qor/socket/Socket.h"

namespace qor::socket {
namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

TEST(Socket, IsRefusedWithAnInvalidClosePolicy) {
  EXPECT_THAT([] { Socket("Impatient", static_cast<ClosePolicy::ClosePolicy>(3)); },
              ThrowsMessage<std::runtime_error>(HasSubstr("invalid close policy 3")));
}

TEST(Socket, SaysInItsDescriptionWhetherItIsOpen) {
  Socket socket("Described", ClosePolicy::Newest);
  EXPECT_EQ(socket.debugString(), "Described (no endpoint) [not open]");
  socket.createAndConnect(Protocol::Publisher, SocketEndpoint::FromString("inproc://described"), 0);
  EXPECT_EQ(socket.debugString(), "Described (Publisher inproc://described)");
  socket.close();
  EXPECT_EQ(socket.debugString(), "Described (Publisher inproc://described) [not open]");
}

TEST(ZmqContextTermination, IsNotAFailureOfOneOperation) {
  const ZmqContextTerminationException exception("the context is being shut down");
  EXPECT_STREQ(exception.what(), "the context is being shut down");
  EXPECT_FALSE((std::is_base_of_v<std::runtime_error, ZmqContextTerminationException>));
}

}  // namespace
}  // namespace qor::socket
