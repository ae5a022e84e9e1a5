#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "hosting/EngineRegistration.h"

namespace qor::hosting {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string complaintAbout(const std::string& text) {
  try {
    parseEngineRegistration(text);
    return "(none)";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

TEST(EngineRegistration, NamesALibrary) {
  const auto read = parseEngineRegistration(
      "{\n  \"name\": \"mixer-2\",\n  \"summary\": \"Mixes \\u00e9\",\n  \"library\": "
      "\"../lib/libmixer.so\"\n}\n");
  EXPECT_EQ(read.name, "mixer-2");
  EXPECT_EQ(read.summary, "Mixes \xc3\xa9");
  EXPECT_EQ(read.library, "../lib/libmixer.so");
  EXPECT_EQ(read.program, "");
  EXPECT_EQ(read.pathPlace, "4:14");
}

TEST(EngineRegistration, NamesAProgramWithItsArguments) {
  const auto read =
      parseEngineRegistration(R"({"arguments": ["--fast", ""], "program": "./mix.py", "name": "mixer"})");
  EXPECT_EQ(read.program, "./mix.py");
  EXPECT_THAT(read.arguments, ElementsAre("--fast", ""));
  EXPECT_EQ(read.library, "");
  EXPECT_EQ(read.summary, "");
  EXPECT_EQ(read.manual, "");
}

TEST(EngineRegistration, NamesTheManualOfAProgram) {
  const auto read =
      parseEngineRegistration(R"({"manual": "mix.manual", "program": "./mix.py", "name": "mixer"})");
  EXPECT_EQ(read.manual, "mix.manual");
  EXPECT_EQ(read.manualPlace, "1:12");
  EXPECT_EQ(read.pathPlace, "1:37");
}

struct Complaint {
  std::string text;
  std::string place;
  std::string what;
};

class EngineRegistrationComplaint : public testing::TestWithParam<Complaint> {};

TEST_P(EngineRegistrationComplaint, BeginsWithThePlaceAndQuotesWhatIsWrong) {
  EXPECT_THAT(complaintAbout(GetParam().text),
              AllOf(StartsWith(GetParam().place + ": "), HasSubstr(GetParam().what), Not(HasSubstr("\n"))));
}

INSTANTIATE_TEST_SUITE_P(
    Each, EngineRegistrationComplaint,
    testing::Values(
        Complaint{"", "1:1", "the end of the text"}, Complaint{"\n\n", "3:1", "the end of the text"},
        Complaint{"{\n  \"name\": oops\n}", "2:11", "invalid JSON"},
        Complaint{"{\"name\": \"a\", \"library\": \"b\"", "1:29", "the end of the text"},
        Complaint{"{\"name\": \"a\", \"library\": \"b\"}\n}", "2:1", "invalid JSON"},
        Complaint{"\xff", "1:1", "invalid JSON"},
        Complaint{"[1]", "1:1", "this is a list; expected an object"},
        Complaint{"\n 5", "2:2", "this is 5; expected an object"}, Complaint{"null", "1:1", "this is null"},
        Complaint{"\"a\"", "1:1", "this is \"a\""}, Complaint{"{}", "1:2", "no \"name\" is given"},
        Complaint{
            "{\"name\": \"a\",\n \"nme\": 1}", "2:2",
            R"(unknown key "nme"; expected one of "name", "summary", "library", "program", "arguments", "manual")"},
        Complaint{"{\"name\": \"a\",\n \"name\": \"b\"}", "2:2", "duplicate key \"name\""},
        Complaint{R"({"name": 5})", "1:10", R"("name" is 5; expected a string)"},
        Complaint{R"({"name": -5})", "1:10", R"("name" is -5)"},
        Complaint{R"({"name": 1.50})", "1:10", R"("name" is 1.50)"},
        Complaint{R"({"name": true})", "1:10", R"("name" is true)"},
        Complaint{R"({"name": {"a": 1}})", "1:10", R"("name" is an object; expected a string)"},
        Complaint{R"({"name": ["a"]})", "1:10", R"("name" is a list; expected a string)"},
        Complaint{R"({"name": "two words"})", "1:10", "expected up to 64 letters"},
        Complaint{R"({"name": ""})", "1:10", "expected up to 64 letters"},
        Complaint{R"({"name": ".hidden"})", "1:10", "a letter or a digit first"},
        Complaint{R"({"name": ")" + std::string(65, 'a') + R"("})", "1:10", "expected up to 64 letters"},
        Complaint{R"({"summary": "a\nb"})", "1:13", "expected one line of text"},
        Complaint{R"({"library": ""})", "1:13", "expected the path of a file"},
        Complaint{R"({"library": "a\u0000b"})", "1:13", "null character"},
        Complaint{R"({"program": "a", "arguments": "b"})", "1:31",
                  R"("arguments" is "b"; expected a list of strings)"},
        Complaint{R"({"arguments": ["a", 1]})", "1:21", R"("arguments" holds 1; expected strings)"},
        Complaint{R"({"arguments": [["a"]]})", "1:16", R"("arguments" holds a list; expected strings)"},
        Complaint{R"({"arguments": [{}]})", "1:16", R"("arguments" holds an object)"},
        Complaint{"{\"name\": \"a\"\n}", "2:1", R"(neither "library" nor "program")"},
        Complaint{R"({"name": "a", "library": "b", "program": "c"})", "1:45", "both"},
        Complaint{R"({"name": "a", "library": "b", "arguments": ["c"]})", "1:49", "for a library"},
        Complaint{R"({"name": "a", "library": "b", "manual": "c"})", "1:44", "which has its own"},
        Complaint{R"({"manual": ""})", "1:12", "expected the path of a file"},
        Complaint{"{\"summary\": \"\xc3\xa9\", \"x\": 1}", "1:18", "unknown key"}));

TEST(EngineRegistration, CutsLongQuotationsBetweenCharacters) {
  std::string name;
  for (int i = 0; i < 100; ++i) name += "\xc3\xa9";
  for (const auto& text : {R"({"name": "a)" + name + "\"}", R"({"name": ")" + name + "\"}"}) {
    const auto complaint = complaintAbout(text);
    EXPECT_LT(complaint.size(), 300U);
    EXPECT_THAT(complaint, Not(HasSubstr("\\x")));
  }
}

TEST(EngineRegistration, IsRefusedWhenItIsNestedTooDeeply) {
  EXPECT_THAT(complaintAbout(std::string(1'000'000, '[')), StartsWith("1:1: "));
  EXPECT_THAT(complaintAbout(R"({"arguments": )" + std::string(1'000'000, '[')), StartsWith("1:16: "));
}

}  // namespace
}  // namespace qor::hosting
