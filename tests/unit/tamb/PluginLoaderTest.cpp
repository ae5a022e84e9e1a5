#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <tuple>

#include "runtime/tamb/FactoryRegistry.h"
#include "runtime/tamb/PluginLoader.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;

using qor::test::TemporaryDirectory;
using tamb::FactoryRegistration;
using tamb::GetFactoryRegistrations;
using tamb::InstantiateEngine;
using tamb::LoadPlugin;
using tamb::TAMBRuntimeError;
using tamb::UnregisterFactories;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::ThrowsMessage;

const fs::path plugin = TAMB_TEST_PLUGIN;
const fs::path noPlugin = TAMB_TEST_NO_PLUGIN;
const fs::path failingPlugin = TAMB_TEST_FAILING_PLUGIN;

bool isMapped(const fs::path& library) {
  void* const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) {
    dlclose(handle);
  }
  return handle != nullptr;
}

/// The message is one line with the path in quotes.
auto names(const fs::path& path) { return AllOf(HasSubstr('"' + path.string() + '"'), Not(HasSubstr("\n"))); }

class PluginLoader : public testing::Test {
 private:
  void TearDown() override { UnregisterFactories("registers_engine"); }
};

TEST_F(PluginLoader, HasAPluginRegisterItsFactoriesUnderItsName) {
  EXPECT_EQ(LoadPlugin(plugin), "registers_engine");
  EXPECT_THAT(GetFactoryRegistrations(),
              ElementsAre(AllOf(Field(&FactoryRegistration::name, "registers_engine"),
                                Field(&FactoryRegistration::type, "StillEngine"))));
  const auto product = InstantiateEngine("StillEngine", nullptr);
  EXPECT_EQ(std::get<0>(product)->GetStatus(), tamb::EngineStatus::Idle);
}

TEST_F(PluginLoader, KeepsAPluginMappedForTheElementsItHasCreated) {
  LoadPlugin(plugin);
  const auto product = InstantiateEngine("StillEngine", nullptr);
  UnregisterFactories("registers_engine");
  EXPECT_TRUE(isMapped(plugin));
  EXPECT_EQ(std::get<0>(product)->GetStatus(), tamb::EngineStatus::Idle);
}

TEST_F(PluginLoader, KeepsThePluginsSymbolsApart) {
  LoadPlugin(plugin);
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "RegisterAll"), nullptr);
}

TEST_F(PluginLoader, HasARetiredPluginRegisterAgain) {
  LoadPlugin(plugin);
  EXPECT_THAT([] { LoadPlugin(plugin); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(names(plugin), HasSubstr("already registered"))));
  UnregisterFactories("registers_engine");
  LoadPlugin(plugin);
  EXPECT_NO_THROW(InstantiateEngine("StillEngine", nullptr));
}

TEST_F(PluginLoader, TakesARelativePathForAPathEvenWithoutASlash) {
  const TemporaryDirectory directory;
  const auto before = fs::current_path();
  fs::create_symlink(plugin, directory.path() / "libnear.so.2.1");
  fs::current_path(directory.path());
  std::string name;
  EXPECT_NO_THROW(name = LoadPlugin("libnear.so.2.1"));
  fs::current_path(before);
  EXPECT_EQ(name, "near");
  EXPECT_EQ(UnregisterFactories("near"), 1U);
}

TEST_F(PluginLoader, DoesNotSearchTheSystemsLibraries) {
  EXPECT_THAT([] { LoadPlugin("libc.so.6"); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(names("libc.so.6"), HasSubstr("no such file"))));
}

TEST_F(PluginLoader, ReportsAMissingFile) {
  const TemporaryDirectory directory;
  const auto missing = directory.path() / "libmissing.so";
  EXPECT_THAT([&] { LoadPlugin(missing); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(names(missing), HasSubstr("no such file"))));
  EXPECT_THAT([] { LoadPlugin(""); }, ThrowsMessage<TAMBRuntimeError>(names("")));
}

TEST_F(PluginLoader, ReportsAFileThatIsNotASharedLibrary) {
  const TemporaryDirectory directory;
  const auto text = directory.path() / "libtext.so";
  std::ofstream(text) << "This is a text of more bytes than the header of a shared library has, so that the\n"
                         "dynamic linker reads it and judges what it says.\n";
  EXPECT_THAT(
      [&] { LoadPlugin(text); },
      ThrowsMessage<TAMBRuntimeError>(AllOf(names(text), HasSubstr("cannot be loaded as a shared library"))));
  EXPECT_THAT([&] { LoadPlugin(directory.path()); },
              ThrowsMessage<TAMBRuntimeError>(
                  AllOf(names(directory.path()), HasSubstr("cannot be loaded as a shared library"))));
}

TEST_F(PluginLoader, ReportsALibraryThatIsNotAPluginAndUnmapsIt) {
  EXPECT_THAT([] { LoadPlugin(noPlugin); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(names(noPlugin), HasSubstr("RegisterAll"))));
  EXPECT_FALSE(isMapped(noPlugin));
}

TEST_F(PluginLoader, SaysWhyAPluginCouldNotRegister) {
  EXPECT_THAT([] { LoadPlugin(failingPlugin); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(names(failingPlugin), HasSubstr("no licence"))));
  EXPECT_THAT(GetFactoryRegistrations(), IsEmpty());
}

}  // namespace
