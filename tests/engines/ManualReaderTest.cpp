#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "engines/media/MediaManual.h"
#include "engines/sdk/EngineManual.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/engines/fault/TestDocument.h"

namespace qor::engines {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string complaintAbout(const std::string& text) {
  try {
    manualFrom(text);
    return "(none)";
  } catch (const tamb::TAMBRuntimeError& error) {
    return error.what();
  }
}

TEST(AManualOfJson, IsReadAsItWasWritten) {
  EngineManual odd{.name = "odd", .step = "step"};
  odd.keys = {{.name = "gain", .type = KeyType::Count, .defaultValue = std::uint64_t{7}},
              {.name = "law", .type = KeyType::Choice, .isRequired = true, .choices = {"linear", "log"}}};
  for (const auto& manual : {mediaManual(), testManual(), odd}) {
    const auto text = manualJson(manual);
    EXPECT_EQ(manualJson(manualFrom(text)), text);
    EXPECT_EQ(manualText(manualFrom(text)), manualText(manual));
  }
}

TEST(AManualOfJson, NeedsOnlyItsNameAndItsStep) {
  const auto manual = manualFrom(R"({"name": "cut", "step": "main", "version": 3})");
  EXPECT_EQ(manual.name, "cut");
  EXPECT_EQ(manual.step, "main");
  EXPECT_TRUE(manual.keys.empty());
  EXPECT_TRUE(manual.commands.empty());
}

TEST(AManualOfJson, IsRefusedWithWhatIsWrong) {
  struct Complaint {
    std::string text;
    std::string what;
  };
  const std::string start = R"({"name": "cut", "step": "main", )";
  for (const auto& [text, what] : {
           Complaint{"", "it is not JSON"},
           Complaint{"[1]", "it is [1]; expected an object"},
           Complaint{R"({"name": "cut"})", R"({"name":"cut"} has no "step")"},
           Complaint{R"({"name": 5})", R"("name" is 5; expected a string)"},
           Complaint{start + R"("keys": {}})", R"("keys" is {}; expected a list)"},
           Complaint{start + R"("keys": ["in"]})", R"("keys" holds "in"; expected objects)"},
           Complaint{start + R"("keys": [{"name": "in", "type": "file"}]})", R"("type" is "file"; expected)"},
           Complaint{start + R"("keys": [{"type": "count"}]})", R"(has no "name")"},
           Complaint{start + R"("keys": [{"name": "in", "type": "count", "required": 1}]})",
                     R"("required" is 1; expected true or false)"},
           Complaint{start + R"("keys": [{"name": "in", "type": "choice", "choices": [1]}]})",
                     R"("choices" holds 1; expected strings)"},
           Complaint{start + R"("commands": [{"name": "Go", "arguments": [{"name": "a", "type": "int"}]}]})",
                     R"("type" is "int"; expected a type of parameters)"},
           Complaint{start + R"("notifications": [{}]})", R"({} has no "line")"},
           Complaint{start + R"("summary": "a\u009bJ"})",
                     R"(it holds "a\u009bJ"; expected one line of text)"},
           Complaint{std::string(100'000, '['), "nested more than 32 levels deep"},
           Complaint{start + R"("summary": [")" + std::string(500, 'a') + "\"]}", "aaa...; expected"},
       }) {
    EXPECT_THAT(complaintAbout(text),
                AllOf(StartsWith("Engine manual: "), HasSubstr(what), Not(HasSubstr("\n"))));
  }
}

}  // namespace
}  // namespace qor::engines
