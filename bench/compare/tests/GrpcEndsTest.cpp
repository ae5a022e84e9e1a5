#include <gtest/gtest.h>

#include <fstream>
#include <limits>
#include <string>

#include "bench/compare/GrpcEnds.h"
#include "bench/compare/MeetingPlace.h"

namespace qor::bench {
namespace {

/// Established connections that the port's listener has accepted, from one of the kernel's tables.
int connectionsTo(int port, const char* table) {
  constexpr int established = 1;
  constexpr auto wholeLine = std::numeric_limits<std::streamsize>::max();
  std::ifstream file(table);
  file.ignore(wholeLine, '\n');
  int count = 0;
  for (std::string number, local, remote, state; file >> number >> local >> remote >> state;) {
    file.ignore(wholeLine, '\n');
    const bool isAccepted = std::stoi(local.substr(local.find(':') + 1), nullptr, 16) == port;
    if (isAccepted && std::stoi(state, nullptr, 16) == established) ++count;
  }
  return count;
}

/// gRPC listens on an IPv4 address with an IPv6 socket if possible.
int connectionsTo(int port) {
  return connectionsTo(port, "/proc/self/net/tcp") + connectionsTo(port, "/proc/self/net/tcp6");
}

int connectionsOf(Library library) {
  const Case run{.library = library, .transport = Transport::Tcp};
  const MeetingPlace place(run.transport, 1);
  const Addresses addresses = place.ofEngines().front();
  const auto engine = makeGrpcEngineEnd(run, addresses, [](const Arrival&) {});
  const auto host = makeGrpcHostEnd(run, addresses, [](const Arrival&) {});
  host->ping();
  return connectionsTo(std::stoi(addresses.request.substr(addresses.request.rfind(':') + 1)));
}

TEST(GrpcEnds, RequestsHaveAConnectionOfTheirOwn) { EXPECT_EQ(connectionsOf(Library::Grpc), 2); }

TEST(GrpcEnds, AStreamOfCommandsHasAConnectionOfItsOwn) { EXPECT_EQ(connectionsOf(Library::GrpcClient), 3); }

}  // namespace
}  // namespace qor::bench
