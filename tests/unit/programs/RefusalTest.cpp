#include <gtest/gtest.h>

#include <string>

#include "programs/host/Refusal.h"

namespace qor::programs {
namespace {

std::string replied(const std::string& reply) {
  return "[Remote engine front end: Unexpected reply from service: " + reply + "] [ Condition is not true ]";
}

TEST(AReason, IsTheServicesText) {
  EXPECT_EQ(reasonIn(replied("kind: 5\nrefusal: \"too many engines\"\n")), "too many engines");
  EXPECT_EQ(reasonIn(replied("refusal: \"too many engines\" kind: 5 ")), "too many engines");
  EXPECT_EQ(reasonIn(replied("kind: 5\nrefusal: \"\"\n")), "");
}

TEST(AReason, IsUnescaped) {
  EXPECT_EQ(reasonIn(replied(R"(kind: 5
refusal: "engine 1 of \"a\\b\": \'x\'\n\r\t\303\251\0009\x41g\?"
)")),
            std::string("engine 1 of \"a\\b\": 'x'\n\r\t\u00e9\0009Ag?", 32));
}

TEST(AReason, IsNotTakenFromTheMiddleOfAnotherText) {
  EXPECT_EQ(reasonIn(replied("kind: 5\ntext: \"refusal: \\\"no\\\"\"\nrefusal: \"yes\"\n")), "yes");
  EXPECT_EQ(reasonIn(replied("kind: 5\nno_refusal: \"no\"\n")),
            "Remote engine front end: Unexpected reply from service: kind: 5\nno_refusal: \"no\"\n");
}

TEST(AReason, MayEndAnywhere) {
  const std::string text = "Unexpected reply from service: kind: 5\nrefusal: \"a\\303\\x4\"\n";
  for (std::size_t length = 0; length <= text.size(); ++length) {
    EXPECT_LE(reasonIn(text.substr(0, length)).size(), length);
  }
}

TEST(AReason, HasNoFrame) {
  EXPECT_EQ(reasonIn("[Class: text] [ Condition is not false ]"), "Class: text");
  EXPECT_EQ(reasonIn("[Class: text] [ Pointer is null ]"), "Class: text");
  EXPECT_EQ(reasonIn("[Class: text [1]]"), "Class: text [1]");
}

TEST(AReason, IsAnyOtherTextAsItIs) {
  for (const std::string text :
       {"", "[", "]", "no peer answered within 5000 ms", "[::1]:5 is not an endpoint"}) {
    EXPECT_EQ(reasonIn(text), text);
  }
}

}  // namespace
}  // namespace qor::programs
