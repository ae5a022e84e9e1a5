#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "runtime/processes/Cores.h"

namespace qor::processes {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::ThrowsMessage;

constexpr unsigned int noCore = 1'000'000;

/// On a separate thread, so that the confinement ends with it.
template <class Action>
void onThread(const Action& action) {
  std::thread(action).join();
}

TEST(CoresOfAThread, AreSomeAtFirst) { EXPECT_THAT(usableCores(), Not(IsEmpty())); }

TEST(CoresOfAThread, AreThoseThatItWasToUse) {
  onThread([] {
    const unsigned int last = usableCores().back();
    useCores({last});
    EXPECT_THAT(usableCores(), ElementsAre(last));
  });
}

TEST(CoresOfAThread, AreGivenToTheThreadsThatItStarts) {
  onThread([] {
    const unsigned int last = usableCores().back();
    useCores({last});
    onThread([last] { EXPECT_THAT(usableCores(), ElementsAre(last)); });
  });
}

TEST(CoresOfAThread, DoNotAffectOtherThreads) {
  const Cores before = usableCores();
  onThread([] { useCores({usableCores().back()}); });
  EXPECT_EQ(usableCores(), before);
}

TEST(CoresOfAThread, CanBeMoreAgain) {
  onThread([] {
    const Cores all = usableCores();
    useCores({all.front()});
    useCores(all);
    EXPECT_EQ(usableCores(), all);
  });
}

TEST(CoresOfAThread, StayWhenNoneOfTheRequestedOnesExists) {
  const Cores before = usableCores();
  EXPECT_THAT([] { useCores({noCore}); }, ThrowsMessage<std::system_error>(HasSubstr("1000000")));
  EXPECT_THROW(useCores({}), std::system_error);
  EXPECT_EQ(usableCores(), before);
}

TEST(RequiredCores, AreThoseThatCanBeUsed) {
  EXPECT_NO_THROW(requireUsable(usableCores(), "--core"));
  EXPECT_NO_THROW(requireUsable({}, "--core"));
}

TEST(RequiredCores, AreRefusedByNameWithThoseThatCanBeUsed) {
  onThread([] {
    const unsigned int last = usableCores().back();
    useCores({last});
    EXPECT_THAT(([last] {
                  requireUsable({last, noCore}, "--core");
                }),
                ThrowsMessage<std::runtime_error>("--core: core 1000000 cannot be used: expected one of " +
                                                  std::to_string(last)));
  });
}

}  // namespace
}  // namespace qor::processes
