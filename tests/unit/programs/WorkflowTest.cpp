#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <ctime>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "programs/host/KnownManual.h"
#include "programs/host/Workflow.h"
#include "tests/support/TemporaryDirectory.h"

namespace qor::programs {
namespace {

using nlohmann::json;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

const engines::EngineManual media = assumedManual("media");

/// The refusal is one line with these texts.
template <class... Texts>
auto refuses(const Texts&... texts) {
  return ::testing::ThrowsMessage<std::runtime_error>(AllOf(HasSubstr(texts)..., Not(HasSubstr("\n"))));
}

class AWorkflowFile : public ::testing::Test {
 protected:
  Workflow read(const std::string& text) const {
    const auto file = directory_.path() / "job.json";
    std::ofstream(file) << text;
    return readWorkflow(file);
  }
  auto reading(const std::string& text) const {
    return [this, text] { read(text); };
  }

 private:
  const test::TemporaryDirectory directory_;
};

TEST_F(AWorkflowFile, NeedsOnlyAnEngine) {
  const Workflow workflow = read(R"({"engine": {"engine": "test"}})");
  EXPECT_EQ(workflow.engine, (json{{"engine", "test"}}));
  EXPECT_THAT(workflow.workflowManagerId,
              ::testing::StartsWith("tamb-host-" + std::to_string(::getpid()) + "-"));
  EXPECT_EQ(workflow.engineId, 1);
  EXPECT_TRUE(workflow.commands.empty());
}

TEST_F(AWorkflowFile, GetsAnIdOfItsOwnUnlessItHasOne) {
  const std::string text = R"({"engine": {"engine": "test"}})";
  EXPECT_NE(read(text).workflowManagerId, read(text).workflowManagerId);
  EXPECT_EQ(read(R"({"workflowManagerId": "", "engine": {}})").workflowManagerId, "");
}

TEST_F(AWorkflowFile, IsReadWhole) {
  const Workflow workflow = read(R"({"workflowManagerId": "studio", "engineId": 4294967295, "engine": {},
      "commands": [{"at": 1.5, "name": "Pause", "step": "media", "arguments": {"a": 1}}, {"name": "Stop"}]})");
  EXPECT_EQ(workflow.workflowManagerId, "studio");
  EXPECT_EQ(workflow.engineId, 4294967295);
  ASSERT_EQ(workflow.commands.size(), 2U);
  EXPECT_EQ(workflow.commands[0].at, 1.5);
  EXPECT_EQ(workflow.commands[0].name, "Pause");
  EXPECT_EQ(workflow.commands[0].step, "media");
  EXPECT_EQ(workflow.commands[0].arguments, (json{{"a", 1}}));
  EXPECT_EQ(workflow.commands[1].at, 0);
  EXPECT_EQ(workflow.commands[1].arguments, json::object());
}

TEST_F(AWorkflowFile, IsRefusedWithTheWrongPartAndTheExpectedForm) {
  EXPECT_THAT([] { readWorkflow("/nowhere/job.json"); }, refuses("/nowhere/job.json"));
  EXPECT_THAT(reading("{"), refuses("job.json", "not JSON"));
  EXPECT_THAT(reading("[]"), refuses("not an object"));
  EXPECT_THAT(reading("{}"), refuses("\"engine\""));
  EXPECT_THAT(reading(R"({"engine": 1})"), refuses("\"engine\""));
  EXPECT_THAT(reading(R"({"engine": {}, "comands": []})"), refuses("\"comands\"", "commands"));
  for (const std::string id :
       {"\"x\"", "4294967296", "-1", "-2147483649", "18446744073709551615", "3.7", "true"}) {
    EXPECT_THAT(reading(R"({"engine": {}, "engineId": )" + id + "}"), refuses("\"engineId\"", id, "number"));
  }
  EXPECT_THAT(reading(std::string(60'000, '[')), refuses("job.json", "nested"));
  EXPECT_THAT(reading("x" + std::string(60'000, '[')), refuses("job.json", "not JSON"));
  EXPECT_THAT(reading(R"({"engine": {}, "commands": {}})"), refuses("\"commands\"", "not a list"));
  EXPECT_THAT(reading(R"({"engine": {}, "commands": [7]})"), refuses("command 1", "7"));
  EXPECT_THAT(reading(R"({"engine": {}, "commands": [{"at": 1}]})"), refuses("command 1", "\"name\""));
  EXPECT_THAT(reading(R"({"engine": {}, "commands": [{"name": "x", "at": "soon"}]})"),
              refuses("command 1", "\"at\"", "\"soon\"", "seconds"));
  EXPECT_THAT(reading(R"({"engine": {}, "commands": [{"name": "x", "arguments": []}]})"),
              refuses("command 1", "\"arguments\"", "object"));
}

TEST_F(AWorkflowFile, IsQuotedOnOneReadableLine) {
  const auto isReadable = [](const std::string& text) {
    return text.size() < 9'000 && text.find_first_of("\n\x7f") == std::string::npos;
  };
  const auto complaint = [&](const std::string& text) -> std::string {
    try {
      read(text).messages(media);
      return "(none)";
    } catch (const std::runtime_error& error) {
      return error.what();
    }
  };
  for (const std::string commands :
       {R"([{"name": "a\nb", "at": -1}])", R"([{"name": "x", "arguments": {"a\nb": []}}])",
        "\"a\x7f"
        "b\""}) {
    EXPECT_THAT(complaint(R"({"engine": {}, "commands": )" + commands + "}"),
                AllOf(HasSubstr("a b"), ::testing::ResultOf(isReadable, true)));
  }
  EXPECT_THAT(complaint(R"({"engine": {}, "commands": ")" + std::string(100'000, 'x') + "\"}"),
              ::testing::ResultOf(isReadable, true));
}

TEST_F(AWorkflowFile, IsReadInTimeInProportionToItsCommands) {
  std::string text = R"({"engine": {}, "commands": [{"name": "Stop"})";
  for (int count = 1; count < 100'000; ++count) text += R"(,{"name": "Stop"})";
  const std::clock_t start = std::clock();
  EXPECT_EQ(read(text + "]}").commands.size(), 100'000U);
  // In processor time of this process, which other processes do not affect: a hundredth of it suffices.
  EXPECT_LT(std::clock() - start, 30 * CLOCKS_PER_SEC);
}

TEST_F(AWorkflowFile, MayBeOpenAlready) {
  std::istringstream in(R"({"engine": {"engine": "test"}})");
  EXPECT_EQ(readWorkflow(in, "what was typed").engine, (json{{"engine", "test"}}));
  EXPECT_THAT([&] { readWorkflow(in, "what was typed"); }, refuses("what was typed", "not JSON"));
}

TEST(ATimedCommand, IsReadFromWords) {
  const TimedCommand command =
      commandFrom({"2.5", "FilterCommand", "target=volume", "argument=a=b", "empty="});
  EXPECT_EQ(command.at, 2.5);
  EXPECT_EQ(command.name, "FilterCommand");
  EXPECT_EQ(command.arguments, (json{{"target", "volume"}, {"argument", "a=b"}, {"empty", ""}}));
}

TEST(ATimedCommand, IsRefusedWithTheWordThatIsWrong) {
  const auto from = [](const std::vector<std::string>& words) { return [words] { commandFrom(words); }; };
  EXPECT_THAT(from({}), refuses("TIME NAME KEY=VALUE"));
  EXPECT_THAT(from({"2"}), refuses("--at 2", "TIME NAME KEY=VALUE"));
  EXPECT_THAT(from({"soon", "Stop"}), refuses("--at soon", "seconds"));
  EXPECT_THAT(from({"2s", "Stop"}), refuses("--at 2s", "seconds"));
  EXPECT_THAT(from({"2", "Stop", "now"}), refuses("\"now\"", "KEY=VALUE"));
}

TEST(AWorkflowsMessages, AreItsCommandsInMicrosecondsAndThenResume) {
  Workflow workflow;
  workflow.workflowManagerId = "studio";
  workflow.engineId = 7;
  workflow.engine = {{"engine", "media"}};
  workflow.commands = {{.at = 2.5, .name = "FilterCommand", .step = {}, .arguments = {{"target", "volume"}}}};
  const auto messages = workflow.messages(media);
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_EQ(messages[0]->GetCommandName(), "FilterCommand");
  EXPECT_EQ(messages[0]->GetTime().GetTimeNumber(), 2'500'000);
  EXPECT_EQ(messages[0]->GetTime().GetEditRate().GetNumerator(), 1'000'000U);
  EXPECT_EQ(messages[0]->GetCommandId(), 1U);
  EXPECT_EQ(messages[0]->GetStepId(), "media");
  EXPECT_EQ(messages[0]->GetWorkflowManagerId(), "studio");
  EXPECT_EQ(messages[0]->GetEngineId(), 7U);
  EXPECT_EQ(messages[0]->GetCommandArgs()->GetUTF8String("target"), "volume");
  EXPECT_EQ(messages[1]->GetCommandName(), "Resume");
  EXPECT_EQ(json::parse(workflow.description(media)), (json{{"engine", "media"}, {"startPaused", true}}));
}

TEST(AWorkflowsMessages, KeepNumbersThatAreLargerThanSignedOnes) {
  Workflow workflow;
  workflow.engine = json::object();
  workflow.commands = {{.at = 0, .name = "X", .step = {}, .arguments = {{"large", 18446744073709551615U}}}};
  EXPECT_EQ(workflow.messages(media)[0]->GetCommandArgs()->GetUint64("large"), 18446744073709551615U);
}

TEST(AWorkflowsDescription, IsRefusedWhenItCannotBeCarried) {
  Workflow workflow;
  workflow.engine = {{"input", "caf\xe9.mov"}};
  EXPECT_THAT([&] { static_cast<void>(workflow.description(media)); }, refuses("not UTF-8", "caf"));
  workflow.engine = {{"engine", 5}};
  EXPECT_THAT([&] { static_cast<void>(engineNameIn(workflow.engine)); },
              refuses("\"engine\" is 5", "a text"));
}

TEST(AWorkflowsMessages, DoNotMakeAnotherEngineBeginThatDoesNotWait) {
  Workflow workflow;
  workflow.engine = {{"engine", "test"}};
  EXPECT_TRUE(workflow.messages(assumedManual("test")).empty());
  EXPECT_EQ(json::parse(workflow.description(assumedManual("test"))), (json{{"engine", "test"}}));
}

TEST(AWorkflowsMessages, AreRefusedForInvalidTimes) {
  for (const double at :
       {-0.001, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), 9.1e9}) {
    Workflow workflow;
    workflow.engine = json::object();
    workflow.commands = {{.at = at, .name = "Pause", .step = {}, .arguments = json::object()}};
    EXPECT_THAT([&] { static_cast<void>(workflow.messages(media)); }, refuses("\"Pause\"", "seconds")) << at;
  }
}

TEST(AWorkflowsMessages, AreRefusedForArgumentsThatCannotBeCarried) {
  Workflow workflow;
  workflow.engine = json::object();
  workflow.commands = {{.at = 0, .name = "Pause", .step = {}, .arguments = {{"list", {1, 2}}}}};
  EXPECT_THAT([&] { static_cast<void>(workflow.messages(media)); }, refuses("\"list\"", "[1,2]", "a string"));
}

}  // namespace
}  // namespace qor::programs
