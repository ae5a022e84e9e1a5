#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "engines/media/MediaManual.h"
#include "engines/sdk/EngineManual.h"
#include "engines/sdk/IEngineFactory.h"
#include "engines/sdk/NotificationNames.h"
#include "examples/counter/CounterEngine.h"
#include "tests/engines/EngineTest.h"
#include "tests/engines/fault/TestDocument.h"

namespace qor::engines {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

EngineManual mixerManual() {
  return {.name = "mixer",
          .summary = "Mixes",
          .step = "mix",
          .keys = {{.name = "input", .type = KeyType::Location, .summary = "A file", .isRequired = true},
                   {.name = "bus",
                    .type = KeyType::Object,
                    .summary = "Where to",
                    .keys = {{.name = "law",
                              .type = KeyType::Choice,
                              .summary = "How it fades",
                              .choices = {"linear", "log"}},
                             {.name = "gain", .type = KeyType::Count, .defaultValue = std::uint64_t{7}}}},
                   {.name = "mute", .type = KeyType::Flag, .summary = "No sound"},
                   {.name = "title", .summary = "A name"}},
          .commands = {{.name = "Fade",
                        .summary = "Fades",
                        .arguments = {{"to", tamb::TambType::Double, "Gain"}}}},
          .notifications = {{.line = "Clipped",
                             .summary = "Too loud",
                             .values = {{"by", tamb::TambType::Double}},
                             .isAnError = true}}};
}

TEST(EngineManual, IsTextForPeople) {
  EXPECT_EQ(manualText(mixerManual()), R"(Engine:
  Name                  mixer
  Summary               Mixes
  Step                  mix

Description keys:
  engine              : The engine's name
                        "mixer", required
  input               : A file
                        location, required
  bus                 : Where to
                        object
    law               : How it fades
                        one of "linear", "log", default: "linear"
    gain              : 
                        count, default: 7
  mute                : No sound
                        boolean, default: false
  title               : A name
                        string

Commands:
  Fade                : Fades
                        to: Double - Gain

Notifications:
  Clipped             : Too loud (an error)
                        by: Double
)");
}

TEST(EngineManual, OfAnEngineWithoutKeysAndCommandsIsComplete) {
  const auto text = manualText({.name = "still", .summary = "", .step = "still"});
  EXPECT_THAT(text, HasSubstr("Commands:\n                        none\n"));
  EXPECT_THAT(text, HasSubstr("Notifications:\n                        none\n"));
}

TEST(EngineManual, IsJsonForPrograms) {
  EXPECT_EQ(json::parse(manualJson(mixerManual())), json::parse(R"({
    "name": "mixer", "summary": "Mixes", "step": "mix",
    "keys": [
      {"name": "input", "type": "location", "required": true, "default": null, "summary": "A file"},
      {"name": "bus", "type": "object", "required": false, "default": null, "summary": "Where to", "keys": [
        {"name": "law", "type": "choice", "required": false, "default": "linear", "summary": "How it fades",
         "choices": ["linear", "log"]},
        {"name": "gain", "type": "count", "required": false, "default": 7, "summary": ""}]},
      {"name": "mute", "type": "boolean", "required": false, "default": false, "summary": "No sound"},
      {"name": "title", "type": "string", "required": false, "default": null, "summary": "A name"}],
    "commands": [{"name": "Fade", "summary": "Fades",
                  "arguments": [{"name": "to", "type": "Double", "summary": "Gain"}]}],
    "notifications": [{"line": "Clipped", "isAnError": true, "summary": "Too loud",
                       "values": [{"name": "by", "type": "Double", "summary": ""}]}]})"));
}

std::vector<std::string> linesIn(const EngineManual& manual) {
  std::vector<std::string> lines;
  for (const auto& each : manual.notifications) lines.push_back(each.line);
  return lines;
}

/// One whose author lists nothing, or lists a notification with values of its own.
struct SilentEngine {
  static EngineManual manual() { return {.name = "silent"}; }
};
struct FrugalEngine {
  static EngineManual manual() {
    return {.name = "frugal", .notifications = {{.line = "Finished", .values = {{.name = "spent"}}}}};
  }
};

TEST(EngineManual, HasWhatEveryEnginePublishesWithoutItsAuthorsDoing) {
  EXPECT_THAT(linesIn(withCommonNotifications(SilentEngine::manual())),
              ElementsAre("CommandDone", "CommandFailed", "Finished", "Failed"));
  const auto frugal = withCommonNotifications(withCommonNotifications(FrugalEngine::manual()));
  EXPECT_THAT(linesIn(frugal), ElementsAre("Finished", "CommandDone", "CommandFailed", "Failed"));
  EXPECT_EQ(frugal.notifications.front().values.front().name, "spent");
}

TEST(EngineManual, OfAFactoryIsWhole) {
  EXPECT_THAT(linesIn(EngineFactory<examples::CounterEngine>().describe()),
              ElementsAre("Count", "CommandDone", "CommandFailed", "Finished", "Failed"));
}

}  // namespace

namespace test {
namespace {

/// In a manual, N stands for the number in numbered names.
std::string inManual(std::string name) {
  const auto digits = name.find_first_of("0123456789");
  if (digits != std::string::npos) name.replace(digits, std::string::npos, "N");
  return name;
}

class PublishedNotifications : public EngineTest {
 protected:
  /// Checks that all notifications so far match the manual.
  void expectIn(const EngineManual& manual) const {
    for (const auto& each : heard_->all()) {
      const auto& line = each->GetNotificationLine();
      SCOPED_TRACE(line);
      const auto listed = std::ranges::find(manual.notifications, line, &ManualNotification::line);
      ASSERT_NE(listed, manual.notifications.end());
      EXPECT_EQ(each->GetStepId(), manual.step);
      EXPECT_EQ(each->IsAnError(), listed->isAnError);
      for (const auto& [key, type] : each->GetNotificationObject()->GetKeysAndTypes()) {
        const auto value = std::ranges::find(listed->values, inManual(key), &ManualValue::name);
        ASSERT_NE(value, listed->values.end()) << key;
        EXPECT_EQ(type, value->type) << key;
      }
    }
  }
};

TEST_F(PublishedNotifications, OfTheMediaEngineAreInItsManual) {
  make(media({{"input", quoted(sharedClip())},
              {"output", quoted(path("out.mkv"))},
              {"audioFilter", quoted("volume=1")},
              {"loudness", "true"}}));
  filterCommand(at(1, 1), "volume", "volume", "0.5");
  command("Warp", at(1, 1));
  engine().Run();
  for (const auto* line : {"Started", "Progress", "Loudness", "CommandDone", "CommandFailed", "Finished"})
    EXPECT_FALSE(heard_->ofLine(line).empty()) << line;
  expectIn(mediaManual());
}

TEST_F(PublishedNotifications, OfAFailedMediaEngineAreInItsManual) {
  run(media({{"input", quoted("/nowhere")}}));
  EXPECT_TRUE(heard_->only("Failed"));
  expectIn(mediaManual());
}

TEST_F(PublishedNotifications, OfTheTestEngineAreInItsManual) {
  step_ = "test";
  make(R"({"engine": "test", "notifications": 3, "behaviour": "throw", "when": "command"})");
  command("Hello", now());
  command("Fault", now());
  engine().Ping(5);
  EXPECT_THROW(engine().Run(), std::exception);
  for (const auto* line : {"Tick", "Pinged", "CommandDone", "Failed"})
    EXPECT_FALSE(heard_->ofLine(line).empty()) << line;
  expectIn(testManual());
}

}  // namespace
}  // namespace test
}  // namespace qor::engines
