#include "tests/support/Arrivals.h"
#include "tests/unit/multiprocess/RemoteEngineTest.h"

namespace qor::multiprocess_communication {
namespace {

using socket::inproc::SocketState;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

/// What both processes open between them.
class SocketsOpened : public RemoteEngineTest {
 protected:
  /// In words; the numbers are those that others know the roles and the policies by.
  static std::string inWords(const SocketState& state) {
    return state.name + ": role " + std::to_string(static_cast<int>(state.protocol)) + ", close policy " +
           std::to_string(static_cast<int>(state.closePolicy)) + ", " +
           std::to_string(state.connectTimeOut.count()) + " ms to connect";
  }
  void wireAll() {
    wire();
    ASSERT_TRUE(socket::inproc::waitUntilOpen("TcpEngineBackEndStatusPublicationSocket"));
  }
  /// Those that are open now and meet a condition on their name.
  template <class Condition>
  static std::vector<std::string> opened(Condition condition) {
    std::vector<std::string> sockets;
    for (const auto& state : socket::inproc::sockets()) {
      if (condition(state.name)) sockets.push_back(inWords(state));
    }
    return sockets;
  }
};

TEST_F(SocketsOpened, HaveTheirRolesClosePoliciesAndTimesToConnect) {
  wireAll();
  EXPECT_THAT(opened([](const auto& name) { return name != "SubmissionService"; }),
              UnorderedElementsAre(
                  // Control: the host's end, then the engine's.
                  "TcpEngineFrontEndCommandSocket: role 4, close policy 2, 30000 ms to connect",
                  "TcpEngineFrontEndStatusReceptionSocket: role 2, close policy 0, 5000 ms to connect",
                  "TcpEngineBackEndCommandListenSocket: role 3, close policy 2, 5000 ms to connect",
                  "TcpEngineBackEndStatusPublicationSocket: role 1, close policy 0, 5000 ms to connect",
                  // Commands.
                  "TcpCommandProcessorFrontEndCommand: role 1, close policy 2, 5000 ms to connect",
                  "TcpCommandProcessorBackEndCommand: role 2, close policy 2, 5000 ms to connect",
                  // Notifications.
                  "TcpNotificationHubFrontEndNotification: role 2, close policy 2, 5000 ms to connect",
                  "TcpNotificationHubRequest: role 1, close policy 2, 5000 ms to connect"));
}

TEST_F(SocketsOpened, ForASubmissionAreOneThatIsClosedBriefly) {
  test::Arrivals<std::vector<std::string>> whileAsking;
  startService([&] {
    whileAsking.add(opened([](const auto& name) { return name == submission; }));
    return submitted();
  });
  process_.emplace(endpoints());
  submit();
  EXPECT_THAT(whileAsking.all(),
              ElementsAre(ElementsAre("EngineSubmissionSocket: role 4, close policy 1, 5000 ms to connect")));
}

TEST_F(SocketsOpened, ArePolledATenthOfASecondByEveryReception) {
  wireAll();
  for (const char* const receiver :
       {"TcpEngineFrontEndStatusReceptionSocket", "TcpEngineBackEndCommandListenSocket",
        "TcpCommandProcessorBackEndCommand", "TcpNotificationHubFrontEndNotification"}) {
    EXPECT_TRUE(socket::inproc::waitUntil(receiver, [](const SocketState& state) {
      return state.blockedIn == Operation::Poll && state.pollTimeOut == std::chrono::milliseconds(100);
    })) << receiver;
  }
}

}  // namespace
}  // namespace qor::multiprocess_communication
