#include <csignal>
#include <stdexcept>
#include <string>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tests/support/CoreFile.h"
#include "tests/unit/multiprocess/CommandBackEndTest.h"
#include "tests/unit/multiprocess/NotificationFrontEndTest.h"
#include "tests/unit/multiprocess/WrappedCalls.h"

namespace qor::multiprocess_communication {

namespace {

using testing::KilledBySignal;

/// A runtime error costs the parameters; whatever else comes of rebuilding them has nobody to go to.
template <class Receiver>
class RebuildingFailureDeathTest : public Receiver {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  template <class Error>
  void letRebuildingFail(const Error& error) {
    calls_.before = [error](const std::string& function) {
      if (function == "CreateParametersCollectionPrototype") throw error;
    };
  }

 private:
  /// Outlives the receiver's thread, which goes in the base's tear-down.
  WrappedCalls calls_;
};

class CommandRebuildingFailureDeathTest : public RebuildingFailureDeathTest<CommandBackEndTest> {
 protected:
  /// Returns when the process has survived.
  void receiveOne() {
    test::leaveNoCoreFile();
    construct();
    auto list = listOf({"fatal"});
    list.mutable_messages(0)->mutable_commandargs()->mutable_prototype()->mutable_data();
    list.mutable_messages(0)->mutable_commandargs()->mutable_data();
    deliver(list);
    processor_->commands.waitFor(1);
    backEnd_.reset();
  }
};

TEST_F(CommandRebuildingFailureDeathTest, ARuntimeErrorCostsTheArgumentsOnly) {
  letRebuildingFail(std::runtime_error("no room for them"));
  receiveOne();
  ASSERT_EQ(processor_->commands.all().size(), 1U);
  EXPECT_EQ(processor_->commands.all().front()->GetCommandArgs(), nullptr);
  EXPECT_EQ(log_.recordsWith("no room for them").size(), 1U);
}

TEST_F(CommandRebuildingFailureDeathTest, AnyOtherExceptionEndsTheProcess) {
  letRebuildingFail(std::logic_error("no logic in them"));
  EXPECT_EXIT(receiveOne(), KilledBySignal(SIGABRT), "no logic in them");
  letRebuildingFail(socket::ZmqContextTerminationException("the end of something else"));
  EXPECT_EXIT(receiveOne(), KilledBySignal(SIGABRT), "the end of something else");
}

class NotificationRebuildingFailureDeathTest : public RebuildingFailureDeathTest<NotificationFrontEndTest> {
 protected:
  /// Returns when the process has survived.
  void receiveOne() {
    test::leaveNoCoreFile();
    construct();
    start();
    auto sent = message("fatal");
    sent.mutable_notificationobject()->mutable_prototype()->mutable_data();
    sent.mutable_notificationobject()->mutable_data();
    deliver(encoded(std::vector{sent}));
    hub_->notifications.waitFor(1);
    frontEnd_.reset();
  }
};

TEST_F(NotificationRebuildingFailureDeathTest, ARuntimeErrorCostsTheObjectOnly) {
  letRebuildingFail(std::runtime_error("no room for them"));
  receiveOne();
  ASSERT_EQ(hub_->notifications.all().size(), 1U);
  EXPECT_EQ(hub_->notifications.all().front()->GetNotificationObject(), nullptr);
  EXPECT_EQ(log_.recordsWith("no room for them").size(), 1U);
}

TEST_F(NotificationRebuildingFailureDeathTest, AnyOtherExceptionEndsTheProcess) {
  letRebuildingFail(std::logic_error("no logic in them"));
  EXPECT_EXIT(receiveOne(), KilledBySignal(SIGABRT), "no logic in them");
  letRebuildingFail(socket::ZmqContextTerminationException("the end of something else"));
  EXPECT_EXIT(receiveOne(), KilledBySignal(SIGABRT), "the end of something else");
}

}  // namespace
}  // namespace qor::multiprocess_communication
