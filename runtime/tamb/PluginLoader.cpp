#include "runtime/tamb/PluginLoader.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "runtime/tamb/CurrentException.h"
#include "tamb/TAMBRuntimeError.h"

namespace tamb {

namespace {

struct Unmap {
  void operator()(void* library) const { dlclose(library); }
};

[[noreturn]] void fail(const std::filesystem::path& path, std::string_view reason) {
  throw TAMBRuntimeError(fmt::format("Cannot load plug-in {:?}: {}", path.string(), reason));
}

/// The dynamic linker's message, without the path that it usually begins with.
std::string linkerError(const std::filesystem::path& path) {
  // Called after a failure, so there is a message; it belongs to the calling thread.
  const std::string error = dlerror();  // NOLINT(concurrency-mt-unsafe)
  const std::string prefix = path.string() + ": ";
  return error.starts_with(prefix) ? error.substr(prefix.size()) : error;
}

std::string pluginName(const std::filesystem::path& path) {
  std::string name = path.filename().string();
  name = name.substr(0, name.find(".so"));
  return name.starts_with("lib") ? name.substr(3) : name;
}

}  // namespace

std::string LoadPlugin(const std::filesystem::path& path) {
  std::error_code error;
  // The dynamic linker searches for a path without a slash in its own folders.
  const auto file = std::filesystem::absolute(path, error);
  if (error || !std::filesystem::exists(file, error)) {
    fail(path, error ? error.message() : "no such file");
  }
  std::unique_ptr<void, Unmap> library(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL));
  if (!library) {
    fail(path, "it cannot be loaded as a shared library: " + linkerError(file));
  }
  using RegisterAll = void (*)(const char*);
  const auto registerAll = reinterpret_cast<RegisterAll>(dlsym(library.get(), "RegisterAll"));
  if (registerAll == nullptr) {
    fail(path, "it is not a plug-in: it has no function RegisterAll");
  }
  static_cast<void>(library.release());  // From here on, pointers into the library may exist.
  auto name = pluginName(path);
  try {
    registerAll(name.c_str());
  } catch (...) {
    fail(path, "its RegisterAll failed: " + CurrentExceptionText());
  }
  return name;
}

}  // namespace tamb
