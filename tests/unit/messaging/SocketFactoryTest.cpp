#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qor/socket/Socket.h"
#include "runtime/inproc/InprocSocketFactory.h"
#include "runtime/messaging/SocketFactory.h"

namespace qor::socket {
namespace {

using ::testing::ElementsAre;

/// Installed from its construction until its destruction. Opens in-process sockets and records its calls.
class RecordingFactory final : public SocketFactory {
 public:
  RecordingFactory() { installSocketFactory(*this); }
  ~RecordingFactory() { installSocketFactory(inprocSocketFactory()); }
  RecordingFactory(const RecordingFactory&) = delete;
  RecordingFactory& operator=(const RecordingFactory&) = delete;

  std::vector<std::string> calls;

  std::unique_ptr<OpenSocket> open(const SocketLabel& label, ClosePolicy::ClosePolicy closePolicy,
                                   const SocketEndpoint& endpoint,
                                   std::chrono::milliseconds timeOut) override {
    calls.push_back("open " + label.name);
    return inprocSocketFactory().open(label, closePolicy, endpoint, timeOut);
  }
  void shutDownContext() override { calls.emplace_back("shut down"); }
};

void open(Socket& socket) {
  socket.createAndConnect(Protocol::Subscriber, SocketEndpoint::FromString("inproc://somewhere"), 0);
}

TEST(SocketFactory, IsInstalledByTheLibraryThatTheProgramLinks) {
  EXPECT_EQ(&installedSocketFactory(), &inprocSocketFactory());
}

TEST(SocketFactory, OpensEverySocketFromItsInstallationOnAndLeavesOpenSocketsAlone) {
  Socket before("Before", ClosePolicy::Newest);
  Socket during("During", ClosePolicy::Newest);
  Socket after("After", ClosePolicy::Newest);
  open(before);
  {
    RecordingFactory factory;
    open(during);
    EXPECT_TRUE(before.isOpen());
    EXPECT_THAT(factory.calls, ElementsAre("open During"));
  }
  open(after);
  EXPECT_TRUE(during.isOpen());
}

TEST(SocketFactory, IsAskedToShutItsContextDown) {
  RecordingFactory factory;
  shutDownContext();
  EXPECT_THAT(factory.calls, ElementsAre("shut down"));
}

}  // namespace
}  // namespace qor::socket
