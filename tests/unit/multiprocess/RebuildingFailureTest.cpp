#include <csignal>
#include <functional>
#include <memory>
#include <stdexcept>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tests/support/CoreFile.h"
#include "tests/unit/multiprocess/CommandBackEndTest.h"
#include "tests/unit/multiprocess/NotificationFrontEndTest.h"

namespace qor::multiprocess_communication {

/// The linker gives this program's calls of the framework's function to the first, and to the second what the
/// first calls: see the list file.
std::shared_ptr<tamb::IParametersCollectionPrototype> createOrFail() asm(
    "__wrap__ZN4tamb35CreateParametersCollectionPrototypeEv");
std::shared_ptr<tamb::IParametersCollectionPrototype> createWithTheFramework() asm(
    "__real__ZN4tamb35CreateParametersCollectionPrototypeEv");

namespace {

/// Called ahead of every creation. To be set while nothing is received.
std::function<void()>& beforeCreation() {
  static std::function<void()> function;
  return function;
}

}  // namespace

std::shared_ptr<tamb::IParametersCollectionPrototype> createOrFail() {
  if (beforeCreation()) beforeCreation()();
  return createWithTheFramework();
}

namespace {

using testing::KilledBySignal;

/// A runtime error costs the parameters; whatever else comes of rebuilding them has nobody to go to.
template <class Receiver>
class RebuildingFailureDeathTest : public Receiver {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  void TearDown() override {
    beforeCreation() = nullptr;
    Receiver::TearDown();
  }

  template <class Error>
  static void letRebuildingFail(const Error& error) {
    beforeCreation() = [error] { throw error; };
  }
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
