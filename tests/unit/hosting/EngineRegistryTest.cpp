#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "hosting/EngineRegistry.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/TemporaryDirectory.h"

namespace qor::hosting {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class EngineRegistryTest : public testing::Test {
 protected:
  EngineRegistryTest() { write("lib/libmixer.so", ""); }

  fs::path write(const fs::path& name, const std::string& content) const {
    const auto file = folder_.path() / name;
    fs::create_directories(file.parent_path());
    std::ofstream(file) << content;
    return file;
  }
  fs::path registerMixer(const fs::path& name, const std::string& summary) const {
    return write(name,
                 R"({"name": "mixer", "library": "../lib/libmixer.so", "summary": ")" + summary + "\"}");
  }
  EngineRegistry registry(const std::vector<std::string>& folders) const {
    std::vector<fs::path> paths;
    for (const auto& each : folders) paths.push_back(folder_.path() / each);
    return EngineRegistry(paths);
  }

  const test::TemporaryDirectory folder_;
};

TEST_F(EngineRegistryTest, FindsTheEnginesThatFilesRegister) {
  const auto file = registerMixer("a/mixer.json", "Mixes");
  const auto program = write("a/cut.py", "");
  write("a/cut.json", R"({"name": "cut", "program": "cut.py", "arguments": ["-v"]})");
  write("a/README", "not a registration");
  const auto found = registry({"a"});
  EXPECT_THAT(found.names(), ElementsAre("cut", "mixer"));
  EXPECT_THAT(found.problems(), IsEmpty());
  const auto* const mixer = found.find("mixer");
  ASSERT_TRUE(mixer);
  EXPECT_EQ(mixer->summary, "Mixes");
  EXPECT_EQ(mixer->library, folder_.path() / "lib/libmixer.so");
  EXPECT_EQ(mixer->program, "");
  EXPECT_EQ(mixer->file, file);
  const auto* const cut = found.find("cut");
  ASSERT_TRUE(cut);
  EXPECT_EQ(cut->program, program);
  EXPECT_THAT(cut->arguments, ElementsAre("-v"));
  EXPECT_EQ(found.find("other"), nullptr);
}

TEST_F(EngineRegistryTest, ReadsTheManualOfAProgram) {
  write("a/cut.py", "");
  write("a/cut.json", R"({"name": "cut", "program": "cut.py", "manual": "cut.manual"})");
  EXPECT_THAT(registry({"a"}).problems(),
              ElementsAre(AllOf(HasSubstr("cut.json:1:48: "), HasSubstr("No such file"))));
  const auto manual = write("a/cut.manual", R"({"name": "cut", "step": "scissors"})");
  const auto found = registry({"a"});
  ASSERT_TRUE(found.find("cut"));
  EXPECT_EQ(found.find("cut")->manual, manual);
  EXPECT_EQ(manualOf(*found.find("cut"))->step, "scissors");
  write("a/cut.manual", R"({"name": 5})");
  EXPECT_THAT([&] { static_cast<void>(manualOf(*found.find("cut"))); },
              testing::ThrowsMessage<tamb::TAMBRuntimeError>(
                  AllOf(HasSubstr(manual.string()), HasSubstr(R"("name" is 5; expected a string)"))));
  EXPECT_FALSE(manualOf({.name = "cut", .program = "/opt/cut"}));
}

TEST_F(EngineRegistryTest, HasNothingWhereThereIsNoFolder) {
  const auto found = registry({"nowhere"});
  EXPECT_THAT(found.engines(), IsEmpty());
  EXPECT_THAT(found.problems(), IsEmpty());
}

TEST_F(EngineRegistryTest, TakesTheFirstFoldersEngineOfTwo) {
  registerMixer("a/mixer.json", "first");
  registerMixer("b/mixer.json", "second");
  EXPECT_EQ(registry({"a", "b"}).find("mixer")->summary, "first");
  EXPECT_EQ(registry({"b", "a"}).find("mixer")->summary, "second");
  EXPECT_THAT(registry({"a", "b"}).problems(), IsEmpty());
}

TEST_F(EngineRegistryTest, TakesTheFirstFilesEngineOfTwoInOneFolderAndReportsTheOther) {
  registerMixer("a/2.json", "second");
  registerMixer("a/1.json", "first");
  const auto found = registry({"a"});
  EXPECT_EQ(found.find("mixer")->summary, "first");
  ASSERT_EQ(found.problems().size(), 1U);
  EXPECT_THAT(found.problems()[0],
              AllOf(StartsWith((folder_.path() / "a/2.json: ").string()),
                    EndsWith("already registered by " + (folder_.path() / "a/1.json").string())));
}

TEST_F(EngineRegistryTest, ReportsBadFilesWithTheirPlacesAndReadsTheOthers) {
  write("a/1.json", "{\n  \"name\": 5\n}");
  write("a/2.json", R"({"name": "gone", "library": "gone.so"})");
  write("a/3.json", R"({"name": "folder", "program": "."})");
  write("a/4.json", std::string(70'000, ' '));
  fs::create_directory(folder_.path() / "a/5.json");
  ASSERT_EQ(::mkfifo((folder_.path() / "a/6.json").c_str(), 0600), 0);
  write("a/7\n.json", "oops");
  registerMixer("a/9.json", "good");
  const auto found = registry({"a"});
  EXPECT_THAT(found.names(), ElementsAre("mixer"));
  const auto at = [&](const std::string& name) { return (folder_.path() / "a").string() + "/" + name; };
  EXPECT_THAT(found.problems(),
              ElementsAre(StartsWith(at("1.json:2:11: \"name\" is 5")),
                          AllOf(StartsWith(at("2.json:1:29: \"")), HasSubstr(at("gone.so")),
                                HasSubstr("No such file")),
                          AllOf(StartsWith(at("3.json:1:31: ")), HasSubstr("not a regular file")),
                          AllOf(StartsWith(at("4.json: ")), HasSubstr("larger than 65536 bytes")),
                          StartsWith(at("5.json: this is not a regular file")),
                          StartsWith(at("6.json: this is not a regular file")),
                          AllOf(StartsWith(at("7\\n.json:1:1: ")), Not(HasSubstr("\n")))));
}

TEST_F(EngineRegistryTest, DoesNotHideAnEngineBehindABadFileOfItsName) {
  write("a/mixer.json", R"({"name": "mixer", "library": "gone.so"})");
  registerMixer("b/mixer.json", "good");
  EXPECT_EQ(registry({"a", "b"}).find("mixer")->summary, "good");
}

TEST_F(EngineRegistryTest, ReportsAFolderThatCannotBeRead) {
  write("a", "a file");
  const auto found = registry({"a"});
  ASSERT_EQ(found.problems().size(), 1U);
  EXPECT_THAT(found.problems()[0], StartsWith((folder_.path() / "a: the folder cannot be read").string()));
}

TEST_F(EngineRegistryTest, ChoosesByTheDescription) {
  registerMixer("a/mixer.json", "");
  EXPECT_EQ(registry({"a"}).engineFor(R"({"engine": "mixer", "any": 1})").name, "mixer");
  const auto complaint = [](const EngineRegistry& found, const std::string& description) -> std::string {
    try {
      found.engineFor(description);
      return "(none)";
    } catch (const tamb::TAMBRuntimeError& error) {
      return error.what();
    }
  };
  EXPECT_THAT(complaint(registry({"a"}), R"({"engine": "mxer"})"),
              EndsWith(R"("engine" is "mxer"; expected one of "mixer")"));
  EXPECT_THAT(complaint(registry({}), R"({"engine": "mixer"})"), HasSubstr("none is registered"));
  write("a/bad.json", "oops");
  EXPECT_THAT(complaint(registry({"a"}), R"({"engine": "bad"})"),
              AllOf(HasSubstr(R"(expected one of "mixer")"), HasSubstr("a/bad.json:1:1: ")));
}

/// Sets an environment variable during its lifetime.
class Variable {
 public:
  Variable(const char* name, const char* value) : name_(name) {
    if (const char* const before = std::getenv(name)) before_ = before;
    value == nullptr ? ::unsetenv(name) : ::setenv(name, value, 1);
  }
  ~Variable() { before_.empty() ? ::unsetenv(name_) : ::setenv(name_, before_.c_str(), 1); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  const char* const name_;
  std::string before_;
};

TEST(RegistryFolders, AreThoseAskedForThenTheUsersThenTheProgramsThenTheSystems) {
  const Variable home("HOME", "/home/someone");
  const Variable data("XDG_DATA_HOME", nullptr);
  const auto own = fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "share/tamb/engines.d";
  EXPECT_THAT(
      registryFolders({"/x", "/y"}),
      ElementsAre("/x", "/y", "/home/someone/.local/share/tamb/engines.d", own, "/usr/share/tamb/engines.d"));
}

TEST(RegistryFolders, LeaveOutTheFolderOfAnUnknownUser) {
  const Variable home("HOME", nullptr);
  const Variable data("XDG_DATA_HOME", "relative");
  EXPECT_EQ(registryFolders({}).size(), 2U);
  const Variable other("XDG_DATA_HOME", "/data");
  EXPECT_EQ(registryFolders({}).front(), "/data/tamb/engines.d");
}

TEST(RegistryFolders, NameEachFolderOnce) {
  const test::TemporaryDirectory folder;
  fs::create_directories(folder.path() / "tamb/engines.d");
  const Variable data("XDG_DATA_HOME", folder.path().c_str());
  const auto same = folder.path() / "tamb" / "." / "engines.d";
  EXPECT_THAT(registryFolders({same}), ElementsAre(same, testing::_, testing::_));
}

}  // namespace
}  // namespace qor::hosting
