#include <gtest/gtest.h>

#include <string>

#include "programs/support/OneLine.h"

namespace qor::programs {
namespace {

TEST(OneLine, LeavesALineAsItIs) {
  EXPECT_EQ(oneLine(""), "");
  EXPECT_EQ(oneLine("a reason: \t\"quoted\""), "a reason: \t\"quoted\"");
}

TEST(OneLine, PutsSpacesForLineEnds) { EXPECT_EQ(oneLine("one\ntwo\r\nthree\n"), "one two  three "); }

TEST(OneLine, CutsWhatIsTooLong) {
  EXPECT_EQ(oneLine(std::string(10, 'x'), 10), std::string(10, 'x'));
  EXPECT_EQ(oneLine(std::string(11, 'x'), 10), std::string(10, 'x') + "...");
}

TEST(OneLine, CutsBetweenTwoCharacters) {
  const std::string text = "12345678\u20ac9";
  EXPECT_EQ(oneLine(text, 11), "12345678\u20ac...");
  EXPECT_EQ(oneLine(text, 10), "12345678...");
  EXPECT_EQ(oneLine(text, 8), "12345678...");
}

}  // namespace
}  // namespace qor::programs
