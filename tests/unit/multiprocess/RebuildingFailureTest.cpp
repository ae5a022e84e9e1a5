#include <csignal>
#include <stdexcept>
#include <string>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tests/support/CoreFile.h"
#include "tests/unit/multiprocess/CommandReceiving.h"
#include "tests/unit/multiprocess/NotificationReceiving.h"
#include "tests/unit/multiprocess/OwnFramework.h"

namespace qor::multiprocess_communication {

namespace {

using testing::KilledBySignal;

/// A runtime error costs the parameters; whatever else comes of rebuilding them has nobody to go to.
template <class Channel>
class RebuildingFailureDeathTest : public ReceivingTest<Channel> {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  void TearDown() override {
    ReceivingTest<Channel>::TearDown();
    OwnFramework::get() = {};
  }
  template <class Error>
  void letRebuildingFail(const Error& error) {
    OwnFramework::get().before = [error](const std::string& function) {
      if (function == "CreateParametersCollectionPrototype") throw error;
    };
  }
  /// Returns when the process has survived.
  void receiveOne() {
    test::leaveNoCoreFile();
    this->open();
    auto sent = this->wire("fatal");
    Channel::mutableParameters(sent).mutable_prototype()->mutable_data();
    Channel::mutableParameters(sent).mutable_data();
    this->deliver(std::vector{sent});
    Channel::arrivals(this->local_).waitFor(1);
    this->receiver_.reset();
  }
};

using Channels = testing::Types<CommandReceiving, NotificationReceiving>;
TYPED_TEST_SUITE(RebuildingFailureDeathTest, Channels);

TYPED_TEST(RebuildingFailureDeathTest, ARuntimeErrorCostsTheParametersOnly) {
  this->letRebuildingFail(std::runtime_error("no room for them"));
  this->receiveOne();
  ASSERT_EQ(this->arrived().size(), 1U);
  EXPECT_EQ(TypeParam::parameters(*this->arrived().front()), nullptr);
  EXPECT_EQ(this->log_.recordsWith("no room for them").size(), 1U);
}

TYPED_TEST(RebuildingFailureDeathTest, AnyOtherExceptionEndsTheProcess) {
  this->letRebuildingFail(std::logic_error("no logic in them"));
  EXPECT_EXIT(this->receiveOne(), KilledBySignal(SIGABRT), "no logic in them");
  this->letRebuildingFail(socket::ZmqContextTerminationException("the end of something else"));
  EXPECT_EXIT(this->receiveOne(), KilledBySignal(SIGABRT), "the end of something else");
}

}  // namespace
}  // namespace qor::multiprocess_communication
