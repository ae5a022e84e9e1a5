#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>
#include <system_error>

#include "tests/unit/multiprocess/BackEndTest.h"
#include "tests/unit/multiprocess/NotificationReceiving.h"

namespace qor::multiprocess_communication {
namespace {

/// A system that has room for so many more threads and no other. Threads ask for far more of the process's
/// addresses than they need, and the process may have those of that many threads.
class NoMoreThreads {
 public:
  explicit NoMoreThreads(std::size_t remaining) {
    ::getrlimit(RLIMIT_AS, &limitBefore_);
    ::pthread_getattr_default_np(&attributesBefore_);
    pthread_attr_t attributes;
    ::pthread_getattr_default_np(&attributes);
    ::pthread_attr_setstacksize(&attributes, stackSize);
    ::pthread_setattr_default_np(&attributes);
    ::pthread_attr_destroy(&attributes);
    const rlimit limit{.rlim_cur = addressesInUse() + remaining * stackSize + stackSize / 2,
                       .rlim_max = limitBefore_.rlim_max};
    ::setrlimit(RLIMIT_AS, &limit);
  }
  ~NoMoreThreads() {
    ::setrlimit(RLIMIT_AS, &limitBefore_);
    ::pthread_setattr_default_np(&attributesBefore_);
    ::pthread_attr_destroy(&attributesBefore_);
  }
  NoMoreThreads(const NoMoreThreads&) = delete;
  NoMoreThreads& operator=(const NoMoreThreads&) = delete;

 private:
  /// Far more than everything else that is allocated meanwhile.
  static constexpr std::size_t stackSize = std::size_t{1} << 30U;

  static std::size_t addressesInUse() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  }

  rlimit limitBefore_{};
  pthread_attr_t attributesBefore_{};
};

/// How a back end meets a system that has no more threads.
using TcpEngineBackEndWithoutThreads = BackEndTest;

TEST_F(TcpEngineBackEndWithoutThreads, CannotBeMadeAndLeavesNothingOpen) {
  for (const std::size_t remaining : {0U, 1U}) {
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
    EXPECT_EQ(replyTo(Request::Run), failure("TcpEngineBackEnd: Resource temporarily unavailable"));
  }
  EXPECT_EQ(replyTo(Request::Run), success);
  EXPECT_TRUE(engine_->waitUntilRunning());
}

/// How a hub's front end meets one.
using TcpNotificationHubFrontEndWithoutThreads = NotificationReceivingTest;

TEST_F(TcpNotificationHubFrontEndWithoutThreads, DoesNotStartAndHasNoSocketOpenUntilItDoes) {
  construct();
  {
    const NoMoreThreads system(0);
    EXPECT_THROW(start(), std::system_error);
    EXPECT_TRUE(socket::inproc::sockets().empty());
  }
  start();
  ASSERT_TRUE(socket::inproc::waitUntilOpen(socketName));
  deliverNames({"a line"});
  EXPECT_EQ(arrivedNames(), std::vector<std::string>{"a line"});
}

}  // namespace
}  // namespace qor::multiprocess_communication
