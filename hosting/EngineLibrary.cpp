#include "hosting/EngineLibrary.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "engines/sdk/EngineLibrary.h"
#include "runtime/tamb/CurrentException.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::hosting {

namespace {

struct Unload {
  void operator()(void* library) const { ::dlclose(library); }
};

[[noreturn]] void fail(const std::filesystem::path& path, std::string_view reason) {
  throw tamb::TAMBRuntimeError(fmt::format("cannot load the engine library {:?}: {}", path.string(), reason));
}

/// What the dynamic linker reports, without the path that it usually begins with.
std::string linkerError(const std::filesystem::path& path) {
  // The message belongs to the calling thread, and is there, since a call has just failed.
  const std::string error = ::dlerror();  // NOLINT(concurrency-mt-unsafe)
  const std::string prefix = path.string() + ": ";
  return error.starts_with(prefix) ? error.substr(prefix.size()) : error;
}

const engines::IEngineFactory* callFactory(const std::filesystem::path& path,
                                           engines::EngineFactoryFunction function, std::uint32_t& version) {
  try {
    return function(engines::engineInterfaceVersion, &version);
  } catch (...) {
    fail(path,
         fmt::format("its {} failed: {}", engines::engineFactoryFunctionName, tamb::CurrentExceptionText()));
  }
}

}  // namespace

const engines::IEngineFactory& loadEngineLibrary(const std::filesystem::path& path) {
  // The dynamic linker takes a path without a slash for a name to search for.
  const auto file = std::filesystem::absolute(path);
  std::unique_ptr<void, Unload> library(::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL));
  if (!library) fail(path, linkerError(file));
  const auto function = reinterpret_cast<engines::EngineFactoryFunction>(
      ::dlsym(library.get(), engines::engineFactoryFunctionName));
  if (function == nullptr) {
    fail(path, fmt::format("it is not an engine library: it has no function {}",
                           engines::engineFactoryFunctionName));
  }
  std::uint32_t version = 0;
  const auto* const factory = callFactory(path, function, version);
  if (version != engines::engineInterfaceVersion) {
    fail(path, fmt::format("it was built for version {} of the engine interface, and this program has "
                           "version {}; rebuild it",
                           version, engines::engineInterfaceVersion));
  }
  if (factory == nullptr) fail(path, "its factory returned no engine");
  static_cast<void>(library.release());  // From here on, the factory points into it.
  return *factory;
}

}  // namespace qor::hosting
