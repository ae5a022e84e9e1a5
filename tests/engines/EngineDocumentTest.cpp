#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <variant>

#include "engines/sdk/EngineDocument.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr auto all = OfferedEngines::WithTestEngine;

std::string complaintAbout(const std::string& text, OfferedEngines offered = all) {
  try {
    parseEngineDocument(text, offered);
    return "(none)";
  } catch (const tamb::TAMBRuntimeError& error) {
    return error.what();
  }
}

TEST(EngineDocument, SaysWhatAMediaEngineIsToDo) {
  const auto document = parseEngineDocument(R"({
    "engine": "media", "input": "in.mov", "output": "out.mkv", "audioFilter": "volume=0.5",
    "videoFilter": "hue=s=0", "loudness": true, "realTime": true, "startPaused": true,
    "settings": {"videoCodec": "mpeg4", "audioCodec": "flac", "container": "nut", "onError": "fail"}})",
                                            all);
  const auto& media = std::get<MediaDocument>(document);
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
  const auto document = parseEngineDocument(R"({"engine": "media", "input": "in.mov"})", all);
  const auto& media = std::get<MediaDocument>(document);
  EXPECT_EQ(media.output, "");
  EXPECT_EQ(media.onError, OnError::Skip);
  EXPECT_FALSE(media.loudness);
  EXPECT_FALSE(media.realTime);
  EXPECT_FALSE(media.startPaused);
}

TEST(EngineDocument, SaysWithoutAnOutputWhatToDoAboutErrors) {
  const auto document =
      parseEngineDocument(R"({"engine": "media", "input": "in.mov", "settings": {"onError": "fail"}})", all);
  EXPECT_EQ(std::get<MediaDocument>(document).onError, OnError::Fail);
}

TEST(EngineDocument, SaysWhatATestEngineDoesWrong) {
  const auto document = parseEngineDocument(
      R"({"engine": "test", "behaviour": "freeze", "when": "command", "notifications": 12, "prints": 3})",
      all);
  const auto& test = std::get<TestDocument>(document);
  EXPECT_EQ(test.behaviour, TestBehaviour::Freeze);
  EXPECT_EQ(test.when, TestMoment::Command);
  EXPECT_EQ(test.notifications, 12U);
  EXPECT_EQ(test.prints, 3U);
  EXPECT_EQ(std::get<TestDocument>(parseEngineDocument(R"({"engine": "test"})", all)).behaviour,
            TestBehaviour::Run);
}

TEST(EngineDocument, KnowsTheNamesOfTheEngines) {
  EXPECT_THAT(engineNames(all), ElementsAre("media", "test"));
  EXPECT_THAT(engineNames(OfferedEngines::Shipped), ElementsAre("media"));
}

TEST(EngineDocument, OfATestEngineIsRefusedWhereItIsNotOffered) {
  const auto complaint = complaintAbout(R"({"engine": "test"})", OfferedEngines::Shipped);
  EXPECT_THAT(complaint, AllOf(HasSubstr(R"("engine" is "test"; expected one of "media")"),
                               Not(HasSubstr(R"("media", "test")"))));
  EXPECT_THAT(complaintAbout("{}", OfferedEngines::Shipped), Not(HasSubstr("test")));
}

struct Complaint {
  std::string document;
  std::string quoted;
  std::string expected;
};

class EngineDocumentComplaint : public testing::TestWithParam<Complaint> {};

TEST_P(EngineDocumentComplaint, QuotesWhatIsWrongAndSaysWhatIsExpectedInOneLine) {
  const auto complaint = complaintAbout(GetParam().document);
  EXPECT_THAT(complaint, AllOf(HasSubstr(GetParam().quoted), HasSubstr(GetParam().expected),
                               HasSubstr("Engine description"), Not(HasSubstr("\n"))));
}

INSTANTIATE_TEST_SUITE_P(
    Each, EngineDocumentComplaint,
    testing::Values(
        Complaint{"", "byte 0", "expected an object"},
        Complaint{"{\"engine\":\n oops}", R"("oops}")", "expected an object"},
        Complaint{R"({"engine": "media")", "byte 18 on, where it ends", "expected an object"},
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
        Complaint{R"({"engine": "test", "notifications": 1e999})", R"(holds "1e999")", "expected an object"},
        Complaint{R"({"engine": "test", "input": "a"})", R"("input")",
                  R"("engine", "behaviour", "when", "notifications", "prints")"}));

TEST(EngineDocument, MayNameFilesThatAreNotUtf8) {
  const auto document = parseEngineDocument(
      R"({"engine": "media", "input": {"percentEncoded": "caf%E9.mov"}, "output": {"percentEncoded": "b"}})",
      OfferedEngines::Shipped);
  const auto& media = std::get<MediaDocument>(document);
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
  EXPECT_THAT(complaintAbout(open), HasSubstr("nested more than 32 deep"));
  EXPECT_THAT(complaintAbout(open + close), HasSubstr("nested more than 32 deep"));
  EXPECT_THAT(complaintAbout(R"({"engine": )" + open + close + "}"), HasSubstr("nested more than 32 deep"));
  std::string objects;
  for (int depth = 0; depth < 33; ++depth) objects += R"({"a":)";
  EXPECT_THAT(complaintAbout(objects), HasSubstr("nested more than 32 deep"));
  EXPECT_THAT(complaintAbout(std::string(32, '[') + std::string(32, ']')), HasSubstr("it is [[[["));
}

}  // namespace
}  // namespace qor::engines
