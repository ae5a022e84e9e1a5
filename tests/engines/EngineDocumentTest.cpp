#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "engines/media/MediaDocument.h"
#include "engines/sdk/EngineDocument.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/engines/fault/TestDocument.h"

namespace qor::engines {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// The error text of choosing one of these engines by the document, or of that engine's parsing.
std::string complaintAbout(const std::string& text,
                           const std::vector<std::string>& names = {"media", "test"}) {
  try {
    if (engineNamedIn(text, names) == "media") {
      readMediaDocument(text);
    } else {
      readTestDocument(text);
    }
    return "(none)";
  } catch (const tamb::TAMBRuntimeError& error) {
    return error.what();
  }
}

TEST(EngineDocument, DescribesTheJobOfAMediaEngine) {
  const auto media = readMediaDocument(R"({
    "engine": "media", "input": "in.mov", "output": "out.mkv", "audioFilter": "volume=0.5",
    "videoFilter": "hue=s=0", "loudness": true, "realTime": true, "startPaused": true,
    "settings": {"videoCodec": "mpeg4", "audioCodec": "flac", "container": "nut", "onError": "fail"}})");
  EXPECT_EQ(media.input, "in.mov");
  EXPECT_EQ(media.output, "out.mkv");
  EXPECT_EQ(media.audioFilter, "volume=0.5");
  EXPECT_EQ(media.videoFilter, "hue=s=0");
  EXPECT_TRUE(media.loudness);
  EXPECT_TRUE(media.realTime);
  EXPECT_TRUE(media.startPaused);
  EXPECT_EQ(media.settings.videoCodec, "mpeg4");
  EXPECT_EQ(media.settings.audioCodec, "flac");
  EXPECT_EQ(media.settings.container, "nut");
  EXPECT_EQ(media.onError, OnError::Fail);
}

TEST(EngineDocument, NeedsNothingButAnInput) {
  const auto media = readMediaDocument(R"({"engine": "media", "input": "in.mov"})");
  EXPECT_EQ(media.output, "");
  EXPECT_EQ(media.onError, OnError::Skip);
  EXPECT_FALSE(media.loudness);
  EXPECT_FALSE(media.realTime);
  EXPECT_FALSE(media.startPaused);
}

TEST(EngineDocument, MaySetTheErrorModeWithoutAnOutput) {
  const auto media =
      readMediaDocument(R"({"engine": "media", "input": "in.mov", "settings": {"onError": "fail"}})");
  EXPECT_EQ(media.onError, OnError::Fail);
}

TEST(EngineDocument, DescribesTheFaultOfATestEngine) {
  const auto test = readTestDocument(
      R"({"engine": "test", "behaviour": "freeze", "when": "command", "notifications": 12, "prints": 3})");
  EXPECT_EQ(test.behaviour, TestBehaviour::Freeze);
  EXPECT_EQ(test.when, TestMoment::Command);
  EXPECT_EQ(test.notifications, 12U);
  EXPECT_EQ(test.prints, 3U);
  const auto least = readTestDocument(R"({"engine": "test"})");
  EXPECT_EQ(least.behaviour, TestBehaviour::Run);
  EXPECT_EQ(least.when, TestMoment::Run);
  EXPECT_EQ(least.notifications, 0U);
}

TEST(EngineDocument, NamesAnEngineThatThereIs) {
  EXPECT_EQ(engineNamedIn(R"({"engine": "media", "any": "key"})", {"media", "test"}), "media");
  const auto complaint = complaintAbout(R"({"engine": "test"})", {"media"});
  EXPECT_THAT(complaint, AllOf(HasSubstr(R"("engine" is "test"; expected one of "media")"),
                               Not(HasSubstr(R"("media", "test")"))));
  EXPECT_THAT(complaintAbout("{}", {"media"}), Not(HasSubstr("test")));
  EXPECT_THAT(complaintAbout(R"({"engine": "test"})", {}), HasSubstr("but none is registered"));
}

TEST(EngineDocument, IsRefusedByAnotherEngine) {
  EXPECT_THROW(readMediaDocument(R"({"engine": "test"})"), tamb::TAMBRuntimeError);
  EXPECT_THROW(readTestDocument(R"({"engine": "media", "input": "a"})"), tamb::TAMBRuntimeError);
}

EngineManual mixerManual() {
  return {.name = "mixer",
          .keys = {{.name = "title", .defaultValue = std::string("untitled")},
                   {.name = "gain", .type = KeyType::Count, .defaultValue = std::uint64_t{7}},
                   {.name = "mute", .type = KeyType::Flag, .defaultValue = true},
                   {.name = "law",
                    .type = KeyType::Choice,
                    .defaultValue = std::string("log"),
                    .choices = {"linear", "log"}},
                   {.name = "bus",
                    .type = KeyType::Object,
                    .isRequired = true,
                    .keys = {{.name = "source", .type = KeyType::Location, .isRequired = true}}}}};
}

TEST(EngineDocument, HasTheDefaultsOfItsManual) {
  const auto values = readDocument(R"({"engine": "mixer", "bus": {"source": "a"}})", mixerManual());
  EXPECT_EQ(values.text("title"), "untitled");
  EXPECT_EQ(values.count("gain"), 7U);
  EXPECT_TRUE(values.flag("mute"));
  EXPECT_EQ(values.text("law"), "log");
  EXPECT_EQ(values.choice<int>("law"), 1);
  EXPECT_EQ(values.object("bus").text("source"), "a");
  EXPECT_FALSE(values.isGiven("gain"));
  EXPECT_TRUE(values.isGiven("bus"));
  EXPECT_EQ(values.quoted("bus"), R"({"source":"a"})");
  EXPECT_EQ(values.quoted("gain"), "");
}

TEST(EngineDocument, RejectsAccessToKeysOutsideItsManual) {
  const auto values = readDocument(R"({"engine": "mixer", "bus": {"source": "a"}})", mixerManual());
  EXPECT_THROW(values.text("gian"), std::logic_error);
  EXPECT_THROW(values.text("gain"), std::logic_error);
  EXPECT_THROW(values.flag("title"), std::logic_error);
  EXPECT_THROW(values.count("mute"), std::logic_error);
  EXPECT_THROW(values.choice<int>("title"), std::logic_error);
  EXPECT_THROW(values.object("title"), std::logic_error);
}

TEST(EngineDocument, NeedsTheRequiredKeysOfItsObjects) {
  const auto complaint = [](const std::string& text) -> std::string {
    try {
      readDocument(text, mixerManual());
      return "(none)";
    } catch (const tamb::TAMBRuntimeError& error) {
      return error.what();
    }
  };
  EXPECT_THAT(complaint(R"({"engine": "mixer"})"), HasSubstr(R"(has no "bus"; expected an object)"));
  EXPECT_THAT(complaint(R"({"engine": "mixer", "bus": {}})"),
              HasSubstr(R"("bus" {} has no "source"; expected a string)"));
  EXPECT_THAT(complaint(R"({"engine": "mixer", "bus": {"source": "a", "b": 1}})"),
              HasSubstr(R"("bus" has the unknown key "b"; expected one of "source")"));
}

struct Complaint {
  std::string document;
  std::string quoted;
  std::string expected;
};

class EngineDocumentComplaint : public testing::TestWithParam<Complaint> {};

TEST_P(EngineDocumentComplaint, QuotesTheWrongPartAndStatesTheExpectedOneInOneLine) {
  const auto complaint = complaintAbout(GetParam().document);
  EXPECT_THAT(complaint, AllOf(HasSubstr(GetParam().quoted), HasSubstr(GetParam().expected),
                               HasSubstr("Engine description"), Not(HasSubstr("\n"))));
}

INSTANTIATE_TEST_SUITE_P(
    Each, EngineDocumentComplaint,
    testing::Values(
        Complaint{"", "byte 0", "expected an object"},
        Complaint{"{\"engine\":\n oops}", R"("oops}")", "expected an object"},
        Complaint{R"({"engine": "media")", "byte 18, where the text ends", "expected an object"},
        Complaint{"\xff\xfe\x01", R"(\xff\xfe\x01)", "expected an object"},
        Complaint{"[1, 2]", "[1,2]", "expected an object"}, Complaint{"null", "null", "expected an object"},
        Complaint{R"({"input": "a"})", R"({"input":"a"})", R"(expected one of "media", "test")"},
        Complaint{R"({"engine": "medio"})", R"("medio")", R"(expected one of "media", "test")"},
        Complaint{R"({"engine": 5})", "5", R"(expected one of "media", "test")"},
        Complaint{R"({"engine": "media"})", R"(no "input")", "expected a string"},
        Complaint{R"({"engine": "media", "input": 5})", R"("input" is 5)", "expected a string"},
        Complaint{R"({"engine": "media", "input": ""})", R"("input" is "")", "not empty"},
        Complaint{R"({"engine": "media", "input": {"percentEncoded": "caf%E"}})",
                  R"({"percentEncoded":"caf%E"})",
                  R"(expected a string that is not empty, or {"percentEncoded": "caf%E9.mov"})"},
        Complaint{R"({"engine": "media", "input": {"percentEncoded": ""}})", R"({"percentEncoded":""})",
                  "expected"},
        Complaint{R"({"engine": "media", "input": {"percentEncoded": "a%00"}})",
                  R"({"percentEncoded":"a%00"})", "expected"},
        Complaint{R"({"engine": "media", "input": {"percentEncoded": "a", "b": 1}})", R"("b":1)", "expected"},
        Complaint{R"({"engine": "media", "input": "a", "output": {"bytes": "a"}})",
                  R"("output" is {"bytes":"a"})", "expected"},
        Complaint{R"({"engine": "media", "input": "a\u0000b"})", R"("a\u0000b")", "without null"},
        Complaint{
            R"({"engine": "media", "input": "a", "inputs": "b"})", R"("inputs")",
            R"("engine", "input", "output", "audioFilter", "videoFilter", "loudness", "settings", "realTime", "startPaused")"},
        Complaint{R"({"engine": "media", "input": "a", "output": false})", R"("output" is false)",
                  "expected a string"},
        Complaint{R"({"engine": "media", "input": "a", "audioFilter": ["b"]})", R"("audioFilter" is ["b"])",
                  "expected a string"},
        Complaint{R"({"engine": "media", "input": "a", "videoFilter": {}})", R"("videoFilter" is {})",
                  "expected a string"},
        Complaint{R"({"engine": "media", "input": "a", "loudness": "yes"})", R"("loudness" is "yes")",
                  "expected true or false"},
        Complaint{R"({"engine": "media", "input": "a", "realTime": 1})", R"("realTime" is 1)",
                  "expected true or false"},
        Complaint{R"({"engine": "media", "input": "a", "output": "b", "settings": "fast"})",
                  R"("settings" is "fast")", "expected an object"},
        Complaint{R"({"engine": "media", "input": "a", "output": "b", "settings": {"codec": "x"}})",
                  R"("codec")", R"("videoCodec", "audioCodec", "container", "onError")"},
        Complaint{R"({"engine": "media", "input": "a", "settings": {"onError": "stop"}})",
                  R"("onError" is "stop")", R"(expected one of "skip", "fail")"},
        Complaint{R"({"engine": "media", "input": "a", "output": "b", "settings": {"container": 1}})",
                  R"("container" is 1)", "expected a string"},
        Complaint{R"({"engine": "media", "input": "a", "settings": {"container": "mp4"}})",
                  R"({"container":"mp4"})", "expected both or neither"},
        Complaint{R"({"engine": "test", "behaviour": "crsh"})", R"("crsh")",
                  R"("run", "ignoreStop", "crash", "abort", "kill", "exit", "freeze", "stall", "throw")"},
        Complaint{R"({"engine": "test", "behaviour": 1})", R"("behaviour" is 1)", "expected a string"},
        Complaint{R"({"engine": "test", "when": "later"})", R"("later")", R"("construct", "run", "command")"},
        Complaint{R"({"engine": "test", "notifications": -1})", R"("notifications" is -1)",
                  "expected a whole number"},
        Complaint{R"({"engine": "test", "notifications": 1.5})", R"("notifications" is 1.5)",
                  "expected a whole number"},
        Complaint{R"({"engine": "test", "notifications": 1e999})", R"(the number "1e999" is too large)",
                  "expected an object"},
        Complaint{R"({"engine": "test", "input": "a"})", R"("input")",
                  R"("engine", "behaviour", "when", "notifications", "prints")"}));

TEST(EngineDocument, MayNameFilesThatAreNotUtf8) {
  const auto media = readMediaDocument(
      R"({"engine": "media", "input": {"percentEncoded": "caf%E9.mov"}, "output": {"percentEncoded": "b"}})");
  EXPECT_EQ(media.input, "caf\xe9.mov");
  EXPECT_EQ(media.output, "b");
}

TEST(EngineDocument, CutsLongQuotations) {
  EXPECT_LT(complaintAbout(R"({"engine": ")" + std::string(100'000, 'x') + R"("})").size(), 300U);
  EXPECT_LT(complaintAbout(std::string(100'000, 'x')).size(), 300U);
}

TEST(EngineDocument, SurvivesDeepNesting) {
  const std::string open(100'000, '[');
  const std::string close(100'000, ']');
  EXPECT_THAT(complaintAbout(open), HasSubstr("nested more than 32 levels deep"));
  EXPECT_THAT(complaintAbout(open + close), HasSubstr("nested more than 32 levels deep"));
  EXPECT_THAT(complaintAbout(R"({"engine": )" + open + close + "}"),
              HasSubstr("nested more than 32 levels deep"));
  std::string objects;
  for (int depth = 0; depth < 33; ++depth) objects += R"({"a":)";
  EXPECT_THAT(complaintAbout(objects), HasSubstr("nested more than 32 levels deep"));
  EXPECT_THAT(complaintAbout(std::string(32, '[') + std::string(32, ']')), HasSubstr("it is [[[["));
}

}  // namespace
}  // namespace qor::engines
