#include <stdexcept>
#include <string>
#include <vector>

#include "tambStepsRegistration.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/MockCollections.h"
#include "tests/unit/multiprocess/OwnFramework.h"

namespace qor::multiprocess_communication {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* name = "a plug-in";

/// All that a registration asks of the framework, in this order.
const std::vector<std::string>& functions() {
  static const std::vector<std::string> all{"GetRegistryEntryPrototype", "CreateParametersCollectionInstance",
                                            "CreateParametersCollectionPrototype", "GetTAMBCoreIdInternal",
                                            "RegisterFactory"};
  return all;
}

/// How a registration meets a framework that fails.
class RegistrationFailure : public testing::Test {
 protected:
  void TearDown() override { framework_ = {}; }

  template <class Error>
  void letFail(const std::string& wanted, const Error& error) {
    framework_.before = [wanted, error](const std::string& function) {
      if (function == wanted) throw error;
    };
  }

  OwnFramework& framework_ = OwnFramework::get();
  const test::CapturedLog log_;
};

TEST_F(RegistrationFailure, WhereverItComesFromIsLoggedOnceAndLeavesNothingRegistered) {
  for (const auto& function : functions()) {
    letFail(function, std::logic_error("not in " + function));
    EXPECT_NO_THROW(RegisterAll(name)) << function;
    EXPECT_EQ(log_.recordsWith("RegisterRemoteEngine failed: not in " + function).size(), 1U);
  }
  EXPECT_EQ(log_.records().size(), functions().size());
  EXPECT_THAT(framework_.registered, IsEmpty());
}

TEST_F(RegistrationFailure, OfAnotherTypeThanTheStandardExceptionsLeavesItUnlogged) {
  for (const auto& function : functions()) {
    letFail(function, 42);
    EXPECT_THROW(RegisterAll(name), int) << function;
  }
  EXPECT_THAT(log_.records(), IsEmpty());
  EXPECT_THAT(framework_.registered, IsEmpty());
}

TEST_F(RegistrationFailure, ForWantOfANameIsLoggedToo) {
  EXPECT_NO_THROW(RegisterAll(nullptr));
  ASSERT_EQ(log_.records().size(), 1U);
  EXPECT_THAT(log_.records().front().message, StartsWith("RegisterRemoteEngine failed: "));
  EXPECT_EQ(log_.records().front().source, "src/tambStepsRegistration");
  EXPECT_THAT(framework_.registered, IsEmpty());
}

/// What a registration does one after the other.
class RegistrationOrder : public RegistrationFailure {};

TEST_F(RegistrationOrder, IsEntryThenCoreIdThenFactory) {
  std::vector<std::string> called;
  framework_.before = [&](const std::string& function) { called.push_back(function); };
  RegisterRemoteEngine(name);
  EXPECT_EQ(called, functions());
  EXPECT_THAT(framework_.registered, ElementsAre(name));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(RegistrationOrder, OfAnEntryIsClassThenTypeThenImplementationThenConfiguration) {
  std::vector<std::string> done;
  const auto entry = std::make_shared<testing::NiceMock<test::MockInstance>>();
  const auto note = [&](const std::string& key) { done.push_back(key); };
  ON_CALL(*entry, SetElementFactoryType).WillByDefault([&](const auto& key, auto) { note(key); });
  ON_CALL(*entry, SetUTF8String).WillByDefault([&](const auto& key, const auto&) { note(key); });
  ON_CALL(*entry, SetParametersCollectionPrototype).WillByDefault([&](const auto& key, const auto&) {
    note(key);
  });
  framework_.instance = entry;
  framework_.before = [&](const std::string& function) { done.push_back(function); };
  RegisterRemoteEngine(name);
  EXPECT_THAT(done, ElementsAre("GetRegistryEntryPrototype", "CreateParametersCollectionInstance",
                                "CreateParametersCollectionPrototype", "class", "type", "implementation",
                                "init_config", "GetTAMBCoreIdInternal", "RegisterFactory"));
}

}  // namespace
}  // namespace qor::multiprocess_communication
