#include <gtest/gtest.h>

#include <array>
#include <string>

#include "runtime/base/Utf8.h"

namespace qor::base {
namespace {

TEST(AFirstCharacter, IsTheCodePointAndItsLength) {
  struct Case {
    std::string text;
    std::size_t length;
    char32_t codePoint;
  };
  for (const auto& [text, length, codePoint] :
       {Case{"az", 1, U'a'}, Case{"\u00e9z", 2, U'\u00e9'}, Case{"\u20acz", 3, U'\u20ac'},
        Case{"\U0001f600z", 4, U'\U0001f600'}}) {
    const auto character = firstCharacter(text);
    EXPECT_TRUE(character.isUtf8);
    EXPECT_EQ(character.length, length);
    EXPECT_EQ(character.codePoint, codePoint);
  }
}

TEST(Utf8, HasNoOverlongFormsNoSurrogatesAndAnEnd) {
  for (const char* const text : {"", "talk", "caf\u00e9", "\u20ac\U0010ffff"})
    EXPECT_TRUE(isUtf8(text)) << text;
  for (const char* const text :
       {"\xe9", "caf\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "a\x80"}) {
    EXPECT_FALSE(isUtf8(text)) << text;
  }
}

TEST(ACutText, StaysWholeWhenItFits) {
  EXPECT_EQ(cutUtf8("", 0), "");
  EXPECT_EQ(cutUtf8("caf\u00e9", 5), "caf\u00e9");
}

TEST(ACutText, EndsBetweenTwoCharacters) {
  const std::string text = "a\u00e9\u20ac\U0001f600z";  // of 1, 2, 3, 4 and 1 bytes
  const std::array<std::size_t, 12> ends{0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 11};
  for (std::size_t longest = 0; longest <= text.size(); ++longest) {
    EXPECT_EQ(cutUtf8(text, longest), text.substr(0, ends.at(longest))) << longest;
  }
}

TEST(ACutText, KeepsMostOfWhatIsNotUtf8) {
  const std::string text(100, '\x80');
  EXPECT_EQ(cutUtf8(text, 50).size(), 47U);
  EXPECT_EQ(cutUtf8(text, 2).size(), 0U);
}

}  // namespace
}  // namespace qor::base
