#include <gtest/gtest.h>

#include <string>

#include "runtime/console/OneLine.h"

namespace qor::console {
namespace {

TEST(OneLine, LeavesALineAsItIs) {
  EXPECT_EQ(oneLine(""), "");
  EXPECT_EQ(oneLine("a reason: \t\"quoted\""), "a reason: \t\"quoted\"");
}

TEST(OneLine, PutsSpacesForLineEnds) { EXPECT_EQ(oneLine("one\ntwo\r\nthree\n"), "one two  three "); }

TEST(OneLine, LeavesNothingThatATerminalObeys) {
  EXPECT_EQ(oneLine(std::string("\x1b[31mred\0\x7f", 10)), " [31mred  ");
  EXPECT_EQ(oneLine("\u009b2J\u0085\u2028\u202egnp"), " 2J   gnp");
}

TEST(OneLine, IsUtf8) {
  const std::string characters = "\u00e9\u0800\ud7ff\uffff\U00010000\U0010ffff";
  EXPECT_EQ(oneLine(characters), characters);
  EXPECT_EQ(oneLine("a\xff\x80z"), "a??z");
  EXPECT_EQ(oneLine("\xc3"), "?");
  EXPECT_EQ(oneLine("\xe2\x82z"), "??z");
  for (const char* const none : {"\xc1\xbf", "\xe0\x9f\xbf", "\xed\xa0\x80", "\xf0\x8f\xbf\xbf",
                                 "\xf4\x90\x80\x80", "\xf5\x80\x80\x80"}) {
    EXPECT_EQ(oneLine(none), std::string(std::string(none).size(), '?'));
  }
  EXPECT_EQ(oneLine(std::string(11, '\x80'), 10), "??????????...");
}

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
}  // namespace qor::console
