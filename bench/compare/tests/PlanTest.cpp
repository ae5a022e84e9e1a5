#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "bench/compare/Case.h"
#include "bench/compare/Plan.h"

namespace qor::bench {
namespace {

TEST(Plan, ATurnIsAtLeastFourWindowsWithAnyNumberOfEngines) {
  for (const Case& run : plan(1)) {
    if (run.isRoundTrip()) continue;
    EXPECT_GE(run.perTurn(), 4 * run.window()) << nameOf(run);
  }
}

TEST(Plan, GuaranteesAndPlainValuesAreMeasuredBesideBareLibzmq) {
  const auto cases = plan(1);
  const auto isMeasuredBesideBare = [&](const Case& wanted) {
    Case bare = wanted;
    bare.library = Library::Bare;
    return std::any_of(cases.begin(), cases.end(),
                       [&](const Case& run) { return nameOf(run) == nameOf(bare); });
  };
  const auto check = [&](Library library, auto belongs) {
    std::size_t count = 0;
    for (const Case& run : cases) {
      if (run.library != library) continue;
      ++count;
      EXPECT_TRUE(belongs(run)) << nameOf(run);
      EXPECT_TRUE(isMeasuredBesideBare(run)) << nameOf(run);
    }
    EXPECT_GT(count, 0U);
  };
  check(Library::BareGuarded, [](const Case& run) { return run.measure == Measure::ControlRoundTrip; });
  check(Library::BareValues, [](const Case& run) { return run.withParameters; });
}

}  // namespace
}  // namespace qor::bench
