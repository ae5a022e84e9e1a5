#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "engines/sdk/PercentEncoding.h"

namespace qor::engines {
namespace {

TEST(PercentEncoding, BringsEveryByteBack) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  EXPECT_EQ(percentDecoded(percentEncoded(bytes)), bytes);
}

TEST(PercentEncoding, IsAsciiThatCanBeRead) {
  EXPECT_EQ(percentEncoded("/media/caf\xe9 100%.mov\n"), "/media/caf%E9 100%25.mov%0A");
}

TEST(PercentEncoding, TakesOtherTextsAsTheyAre) {
  EXPECT_EQ(percentDecoded("caf\u00e9%e9%E9+"), "caf\u00e9\xe9\xe9+");
  EXPECT_EQ(percentDecoded(""), "");
}

TEST(PercentEncoding, IsRefusedWithoutTwoDigits) {
  for (const char* const text : {"%", "a%4", "%4g", "%g4", "%+4", "%-1", "% 4", "%%25"}) {
    EXPECT_EQ(percentDecoded(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace qor::engines
