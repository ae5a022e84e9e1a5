#include <gtest/gtest.h>

#include <string>

#include "runtime/tamb/EscapedText.h"

namespace {

using tamb::EscapedText;

TEST(AnEscapedText, KeepsPrintableCharacters) {
  for (const std::string text : {"", "Progress \"a\\b\"", "\u00a0\u00e9\u0800\u2027\uffff\U0010ffff"}) {
    EXPECT_EQ(EscapedText(text), text);
  }
}

TEST(AnEscapedText, EscapesControlCharacters) {
  EXPECT_EQ(EscapedText("\x1b[2J\a\x7f"), R"(\x1b[2J\x07\x7f)");
  EXPECT_EQ(EscapedText(std::string("a\0b", 3)), R"(a\x00b)");
  EXPECT_EQ(EscapedText("one\r\ntwo\tthree"), R"(one\r\ntwo\tthree)");
  EXPECT_EQ(EscapedText("\u0080\u009b\u009f"), R"(\u0080\u009b\u009f)");
  EXPECT_EQ(EscapedText("\u202egnp\u2066\u2028\u061c"), R"(\u202egnp\u2066\u2028\u061c)");
}

TEST(AnEscapedText, SpellsOutBytesThatAreNotUtf8) {
  EXPECT_EQ(EscapedText("caf\xe9.mkv"), R"(caf\xe9.mkv)");
  // Overlong forms could hide a control character; 0x9b alone is one in Latin-1.
  EXPECT_EQ(EscapedText("\xc0\x9b\x9b"), R"(\xc0\x9b\x9b)");
  EXPECT_EQ(EscapedText("\xe2\x82"), R"(\xe2\x82)");
  EXPECT_EQ(EscapedText("\xed\xa0\x80\xf4\x90\x80\x80"), R"(\xed\xa0\x80\xf4\x90\x80\x80)");
}

}  // namespace
