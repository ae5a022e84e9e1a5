#include <gtest/gtest.h>
#include <zmq.h>

#include <stdexcept>

#include "TcpEngine.pb.h"
#include "bench/BareSockets.h"
#include "bench/PrivateEndpoint.h"

namespace qor::bench {
namespace {

namespace wire = multiprocess_communication::proto;

wire::EngineFrontEndRequest ping() {
  wire::EngineFrontEndRequest request;
  request.set_type(wire::EngineFrontEndRequest::Ping);
  request.set_timeoutmilliseconds(1'000);
  return request;
}

TEST(BareSockets, APlainRequesterMayNotAskAgainBeforeTheReply) {
  const PrivateEndpoint endpoint;
  BareSocket replier(ZMQ_REP, endpoint.text(), true);
  BareSocket requester(ZMQ_REQ, endpoint.text(), false);
  requester.send(ping());
  EXPECT_THROW(requester.send(ping()), std::runtime_error);
}

TEST(BareSockets, AGuardedRequesterMayAskAgainBeforeTheReply) {
  const PrivateEndpoint endpoint;
  BareSocket replier(ZMQ_REP, endpoint.text(), true);
  BareSocket requester(ZMQ_REQ, endpoint.text(), false, Guarantees::AsOursGives);
  requester.send(ping());
  EXPECT_NO_THROW(requester.send(ping()));
}

}  // namespace
}  // namespace qor::bench
