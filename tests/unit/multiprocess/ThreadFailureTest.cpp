#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "tests/unit/multiprocess/BackEndTest.h"
#include "tests/unit/multiprocess/FrontEndTest.h"
#include "tests/unit/multiprocess/NotificationFrontEndTest.h"
#include "tests/unit/multiprocess/WrappedCalls.h"

namespace qor::multiprocess_communication {
namespace {

/// Lets the start of one thread fail, as it does when the system has no more.
class NoMoreThreads {
 public:
  /// So many are still had.
  explicit NoMoreThreads(int remaining) {
    calls_.before = [remaining](const std::string& function) mutable {
      if (function == "std::thread" && remaining-- == 0) {
        throw std::system_error(EAGAIN, std::generic_category(), "no more threads");
      }
    };
  }

 private:
  WrappedCalls calls_;
};

/// How a back end meets a system that has no more threads.
using TcpEngineBackEndWithoutThreads = BackEndTest;

TEST_F(TcpEngineBackEndWithoutThreads, CannotBeMadeAndLeavesNothingOpen) {
  for (const int remaining : {0, 1}) {
    const NoMoreThreads system(remaining);
    EXPECT_THROW(construct(), std::system_error) << remaining;
    EXPECT_FALSE(backEnd_.has_value());
    EXPECT_TRUE(socket::inproc::sockets().empty()) << remaining;
  }
  start();
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
}

TEST_F(TcpEngineBackEndWithoutThreads, RefusesARunWithTheReasonAndTakesALaterOne) {
  start();
  {
    const NoMoreThreads system(0);
    EXPECT_EQ(replyTo(Request::Run),
              failure("TcpEngineBackEnd: no more threads: Resource temporarily unavailable"));
  }
  EXPECT_EQ(replyTo(Request::Run), success);
  EXPECT_TRUE(engine_->waitUntilRunning());
}

/// Lets no socket be made.
class NoMoreSockets {
 public:
  NoMoreSockets() {
    calls_.before = [](const std::string& function) {
      if (function == "qor::socket::Socket") throw std::runtime_error("no more sockets");
    };
  }

 private:
  WrappedCalls calls_;
};

/// How the threads of the engine control channel meet it.
using TcpEngineBackEndWithoutSockets = BackEndTest;

TEST_F(TcpEngineBackEndWithoutSockets, LogsItAndLives) {
  const NoMoreSockets system;
  construct();
  expectLogged(tamb::LogLevel::Error,
               "TcpEngineBackEnd: commandListenThreadFunction: failed binding socket: no more sockets");
  expectLogged(tamb::LogLevel::Error,
               "TcpEngineBackEnd: statusPublicationThreadFunction: failed binding socket: no more sockets");
  stop();
}

using TcpEngineFrontEndWithoutSockets = FrontEndTest;

TEST_F(TcpEngineFrontEndWithoutSockets, LogsItAndLives) {
  const NoMoreSockets system;
  frontEnd_->SetInitConfig(TcpEngineFrontEnd::GenerateConfig(requestAddress, statusAddress));
  expectLogged(
      "TcpEngineFrontEnd: engineStatusReceptionThreadFunction: Failed creating socket: no more sockets");
  frontEnd_.reset();
}

/// How a hub's front end meets it.
using TcpNotificationHubFrontEndWithoutThreads = NotificationFrontEndTest;

TEST_F(TcpNotificationHubFrontEndWithoutThreads, DoesNotStartAndHasNoSocketOpenUntilItDoes) {
  construct();
  {
    const NoMoreThreads system(0);
    EXPECT_THROW(start(), std::system_error);
    EXPECT_TRUE(socket::inproc::sockets().empty());
  }
  start();
  ASSERT_TRUE(socket::inproc::waitUntilOpen(socketName));
  deliverLines({"a line"});
  EXPECT_EQ(pushedLines(), std::vector<std::string>{"a line"});
}

}  // namespace
}  // namespace qor::multiprocess_communication
