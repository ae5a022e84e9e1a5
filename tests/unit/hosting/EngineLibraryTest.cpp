#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <variant>

#include "engines/sdk/LocalEngine.h"
#include "hosting/EngineLibrary.h"
#include "hosting/EngineRegistry.h"
#include "runtime/tamb/EngineDescription.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::hosting {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::string complaintAbout(const std::string& path) {
  try {
    loadEngineLibrary(path);
    return "(none)";
  } catch (const tamb::TAMBRuntimeError& error) {
    return error.what();
  }
}

TEST(EngineLibrary, OffersItsFactory) {
  const std::filesystem::path library(TAMB_TEST_ENGINE);
  const auto& factory = loadEngineLibrary(library);
  EXPECT_EQ(factory.describe().name, "still");
  EXPECT_EQ(&loadEngineLibrary(library), &factory);
}

TEST(EngineLibrary, MakesEnginesThatOutliveNothingButTheProcess) {
  const auto local = engines::makeLocalEngine(tamb::EngineDescription("manager", R"({"engine": "still"})", 7),
                                              loadEngineLibrary(TAMB_TEST_ENGINE));
  EXPECT_EQ(local.engine->GetEngineId(), 7U);
  local.engine->Run();
  EXPECT_EQ(local.engine->GetStatus(), tamb::EngineStatus::Stopped);
}

TEST(EngineLibrary, ThrowsWhatTheProgramCatches) {
  EXPECT_THROW(engines::makeLocalEngine(tamb::EngineDescription("manager", R"({"engine": "other"})", 7),
                                        loadEngineLibrary(TAMB_TEST_ENGINE)),
               tamb::TAMBRuntimeError);
}

TEST(EngineLibrary, OfAnotherVersionIsRefusedWithBothVersions) {
  EXPECT_THAT(complaintAbout(TAMB_TEST_OTHER_VERSION),
              AllOf(HasSubstr(TAMB_TEST_OTHER_VERSION), HasSubstr("built for version 4000000000"),
                    HasSubstr("this program has version 1;")));
}

TEST(EngineLibrary, ThatCannotBeLoadedIsRefused) {
  EXPECT_THAT(complaintAbout("/nowhere/libmixer.so"),
              AllOf(HasSubstr("\"/nowhere/libmixer.so\""), HasSubstr("No such file"), Not(HasSubstr("\n"))));
  EXPECT_THAT(complaintAbout(TAMB_TEST_NO_LIBRARY), HasSubstr("it has no function TambEngineFactory"));
  EXPECT_THAT(complaintAbout("/proc/self/stat"), HasSubstr("cannot load the engine library"));
}

TEST(EngineLibrary, WhoseFactoryCannotBeMadeIsRefusedWithTheReason) {
  EXPECT_THAT(complaintAbout(TAMB_TEST_FAILING_LIBRARY),
              HasSubstr("its TambEngineFactory failed: no licence was found"));
}

TEST(RegisteredEngineToRun, IsLoadedFromALibraryOrIsAProgram) {
  const auto library = toRun({.name = "still", .summary = "", .library = TAMB_TEST_ENGINE});
  ASSERT_TRUE(std::holds_alternative<EngineLoader>(library));
  EXPECT_EQ(std::get<EngineLoader>(library)()->describe().name, "still");
  const auto program = toRun({.name = "cut", .summary = "", .program = "/opt/cut", .arguments = {"-v"}});
  ASSERT_TRUE(std::holds_alternative<EngineProgram>(program));
  EXPECT_EQ(std::get<EngineProgram>(program).file, "/opt/cut");
  EXPECT_THAT(std::get<EngineProgram>(program).arguments, testing::ElementsAre("-v"));
}

}  // namespace
}  // namespace qor::hosting
