#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "programs/host/KnownManual.h"
#include "tests/support/TemporaryDirectory.h"

namespace qor::programs {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

/// The path of an engine library as JSON has it.
std::string library(const char* path) { return json(path).dump(); }

class KnownManual : public testing::Test {
 protected:
  void write(const std::string& name, const std::string& content) const {
    std::ofstream(folder_.path() / name) << content;
  }
  engines::EngineManual of(const std::string& engine) const { return knownManual(engine, {folder_.path()}); }

 private:
  const test::TemporaryDirectory folder_;
};

TEST_F(KnownManual, IsThatOfTheRegisteredLibrary) {
  write("still.json", R"({"name": "still", "library": )" + library(TAMB_TEST_ENGINE) + "}");
  const auto manual = of("still");
  EXPECT_EQ(manual.step, "rest");
  ASSERT_EQ(manual.keys.size(), 1U);
  EXPECT_EQ(manual.keys[0].name, "tape");
  EXPECT_EQ(manual.keys[0].type, engines::KeyType::Location);
}

TEST_F(KnownManual, IsThatOfTheProgramsFile) {
  write("cut.py", "");
  write("cut-manual.txt", R"({"name": "cut", "step": "scissors"})");
  write("cut.json", R"({"name": "cut", "program": "cut.py", "manual": "cut-manual.txt"})");
  EXPECT_EQ(of("cut").step, "scissors");
}

TEST_F(KnownManual, IsAssumedWhereNoneCanBeHad) {
  write("cut.py", "");
  write("cut.json", R"({"name": "cut", "program": "cut.py"})");
  write("bad.txt", "oops");
  write("bad.json", R"({"name": "bad", "program": "cut.py", "manual": "bad.txt"})");
  write("failing.json", R"({"name": "failing", "library": )" + library(TAMB_TEST_FAILING_LIBRARY) + "}");
  write("dying.json", R"({"name": "dying", "library": )" + library(TAMB_TEST_DYING_LIBRARY) + "}");
  for (const std::string engine : {"cut", "bad", "failing", "dying", "nowhere"}) {
    const auto manual = of(engine);
    EXPECT_EQ(manual.name, engine);
    EXPECT_EQ(manual.step, engine);
    EXPECT_TRUE(manual.keys.empty());
    EXPECT_FALSE(canStartPaused(manual));
  }
}

TEST(AssumedManual, OfTheMediaEngineSaysThatItCanWait) {
  EXPECT_TRUE(canStartPaused(assumedManual("media")));
  EXPECT_FALSE(canStartPaused(assumedManual("mixer")));
}

TEST(AnEngineThatCanStartPaused, HasTheKeyAndTheCommand) {
  auto manual = assumedManual("media");
  manual.commands.clear();
  EXPECT_FALSE(canStartPaused(manual));
}

}  // namespace
}  // namespace qor::programs
