#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "programs/host/KnownManual.h"
#include "programs/host/Location.h"

namespace qor::programs {
namespace {

using nlohmann::json;

TEST(ALocation, IsMadeAbsolute) {
  EXPECT_EQ(absoluteLocation("talk.mov", "/home/user"), "/home/user/talk.mov");
  EXPECT_EQ(absoluteLocation("../talk.mov", "/home/user"), "/home/user/../talk.mov");
  EXPECT_EQ(absoluteLocation("file:x:y.wav", "/home/user"), "file:/home/user/x:y.wav");
  EXPECT_EQ(absoluteLocation("caf\xe9.mov", "/home/us\xe9r"), "/home/us\xe9r/caf\xe9.mov");
}

TEST(ALocation, IsAFileUnlessItBeginsAsAUrl) {
  for (const std::string name : {"12:30.mkv", "a:b.mkv", "my talk: one.mov", ":memory:", "talk"}) {
    EXPECT_EQ(absoluteLocation(name, "/home"), "/home/" + name);
  }
}

TEST(ALocation, StaysWhenItIsAbsoluteOrNotAFile) {
  for (const std::string location :
       {"/media/talk.mov", "file:/media/x:y.wav", "-", "", "file:", "http://host/talk.mov", "pipe:0",
        "concat:a.ts|b.ts", "rtmp+x.y-z://host", "subfile,,start,0,end,9,,:talk.mov"}) {
    EXPECT_EQ(absoluteLocation(location, "/home"), location);
  }
}

TEST(ALocation, StaysWithoutAFolder) { EXPECT_EQ(absoluteLocation("talk.mov", ""), "talk.mov"); }

TEST(ALocationsValue, IsATextIfItCanBe) {
  EXPECT_EQ(locationValue("caf\u00e9 100%.mov"), json("caf\u00e9 100%.mov"));
  EXPECT_EQ(locationValue("/caf\xe9 100%.mov"), (json{{"percentEncoded", "/caf%E9 100%25.mov"}}));
}

json madeAbsolute(json engine, const std::string& folder = "/home") {
  makeLocationsAbsolute(engine, assumedManual("media").keys, folder);
  return engine;
}

TEST(AnEnginesLocations, AreMadeAbsolute) {
  EXPECT_EQ(
      madeAbsolute({{"engine", "media"}, {"input", "a.mov"}, {"output", "file:b:c.mov"}, {"x", "y"}}),
      (json{{"engine", "media"}, {"input", "/home/a.mov"}, {"output", "file:/home/b:c.mov"}, {"x", "y"}}));
  EXPECT_EQ(madeAbsolute({{"input", {{"percentEncoded", "caf%E9.mov"}}}}),
            (json{{"input", {{"percentEncoded", "/home/caf%E9.mov"}}}}));
  EXPECT_EQ(madeAbsolute({{"input", "a.mov"}}, "/us\xe9r"),
            (json{{"input", {{"percentEncoded", "/us%E9r/a.mov"}}}}));
}

TEST(AnEnginesLocations, AreLeftToTheEngineWhenTheyAreInvalid) {
  for (const json& input :
       {json(5), json::array({"a"}), json{{"percentEncoded", 5}}, json{{"percentEncoded", "%4"}},
        json{{"percentEncoded", "a"}, {"b", "c"}}, json{{"bytes", "a"}}}) {
    const json engine{{"engine", "media"}, {"input", input}};
    EXPECT_EQ(madeAbsolute(engine), engine);
  }
}

TEST(AnEnginesLocations, AreThoseOfItsManual) {
  using engines::KeyType;
  json mixer{{"engine", "mixer"},
             {"input", "left"},
             {"tape", "a.wav"},
             {"bus", {{"script", "b.lua"}, {"law", "log"}}}};
  makeLocationsAbsolute(mixer,
                        {{.name = "input"},
                         {.name = "tape", .type = KeyType::Location},
                         {.name = "bus",
                          .type = KeyType::Object,
                          .keys = {{.name = "script", .type = KeyType::Location}, {.name = "law"}}}},
                        "/home");
  EXPECT_EQ(mixer, (json{{"engine", "mixer"},
                         {"input", "left"},
                         {"tape", "/home/a.wav"},
                         {"bus", {{"script", "/home/b.lua"}, {"law", "log"}}}}));
}

TEST(AnEnginesLocations, AreLeftAloneInWhatIsNotTheObjectOfTheManual) {
  const std::vector<engines::ManualKey> keys{
      {.name = "bus",
       .type = engines::KeyType::Object,
       .keys = {{.name = "script", .type = engines::KeyType::Location}}}};
  for (const json& bus : {json(5), json("a"), json::array({"script"})}) {
    json mixer{{"bus", bus}};
    makeLocationsAbsolute(mixer, keys, "/home");
    EXPECT_EQ(mixer, (json{{"bus", bus}}));
  }
}

}  // namespace
}  // namespace qor::programs
