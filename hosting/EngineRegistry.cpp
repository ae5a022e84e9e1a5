#include "hosting/EngineRegistry.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "engines/sdk/EngineDocument.h"
#include "hosting/EngineLibrary.h"
#include "hosting/EngineRegistration.h"
#include "runtime/tamb/EscapedText.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::hosting {

namespace fs = std::filesystem;

namespace {

/// In bytes: a registration takes a few hundred.
constexpr std::size_t longestFile = 65'536;
/// Of one folder; the others are left out.
constexpr std::size_t mostFiles = 1'000;

bool isBefore(const RegisteredEngine& engine, const std::string& name) { return engine.name < name; }

/// Throws std::runtime_error, with what is wrong.
std::string contentOf(const fs::path& file) {
  std::error_code error;
  // A pipe could keep us waiting.
  if (!fs::is_regular_file(file, error)) {
    throw std::runtime_error(error ? error.message() : "this is not a regular file");
  }
  std::ifstream in(file, std::ios::binary);
  std::string content(longestFile + 1, '\0');
  if (in) in.read(content.data(), static_cast<std::streamsize>(content.size()));
  if (!in.is_open() || in.bad()) throw std::runtime_error("the file cannot be read");
  content.resize(static_cast<std::size_t>(in.gcount()));
  if (content.size() > longestFile) {
    throw std::runtime_error(fmt::format("the file is larger than {} bytes", longestFile));
  }
  return content;
}

/// Throws std::runtime_error, beginning with the place, for a file that is not there.
fs::path existing(const std::string& path, const fs::path& folder, const std::string& place) {
  auto file = (folder / path).lexically_normal();
  std::error_code error;
  if (!fs::is_regular_file(file, error)) {
    throw std::runtime_error(fmt::format("{}: {:?} cannot be found: {}", place, file.string(),
                                         error ? error.message() : "this is not a regular file"));
  }
  return file;
}

/// Sorted. Throws std::filesystem::filesystem_error; a folder that does not exist has none.
std::vector<fs::path> filesOf(const fs::path& folder) {
  std::vector<fs::path> files;
  if (!fs::exists(folder)) return files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const auto name = entry.path().filename().string();
    if (name.ends_with(".json") && !name.starts_with('.')) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

fs::path userFolder() {
  // Read while the program starts, ahead of whoever could change it.
  const auto variable = [](const char* name) {
    const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
    const fs::path path = value == nullptr ? "" : value;
    // One that is relative is invalid and counts as missing.
    return path.is_absolute() ? path : fs::path();
  };
  if (auto data = variable("XDG_DATA_HOME"); !data.empty()) return data;
  const auto home = variable("HOME");
  return home.empty() ? home : home / ".local" / "share";
}

}  // namespace

EngineRegistry::EngineRegistry(const std::vector<fs::path>& folders) {
  for (const auto& folder : folders) readFolder(folder);
}

void EngineRegistry::readFolder(const fs::path& folder) {
  try {
    auto files = filesOf(folder);
    if (files.size() > mostFiles) {
      problems_.push_back(tamb::EscapedText(fmt::format("{}: only the first {} of {} files are read",
                                                        folder.string(), mostFiles, files.size())));
      files.resize(mostFiles);
    }
    for (const auto& file : files) readFile(file);
  } catch (const fs::filesystem_error& error) {
    problems_.push_back(tamb::EscapedText(
        fmt::format("{}: the folder cannot be read: {}", folder.string(), error.code().message())));
  }
}

void EngineRegistry::readFile(const fs::path& file) {
  bool hasPlace = false;
  try {
    const auto content = contentOf(file);
    hasPlace = true;
    auto read = parseEngineRegistration(content);
    const auto resolved = [&](const std::string& path, const std::string& place) {
      return path.empty() ? fs::path() : existing(path, fs::absolute(file).parent_path(), place);
    };
    const auto library = resolved(read.library, read.pathPlace);
    const auto program = resolved(read.program, read.pathPlace);
    const auto manual = resolved(read.manual, read.manualPlace);
    add({.name = std::move(read.name),
         .summary = std::move(read.summary),
         .library = library,
         .program = program,
         .arguments = std::move(read.arguments),
         .manual = manual,
         .file = file});
  } catch (const std::runtime_error& error) {
    problems_.push_back(
        tamb::EscapedText(fmt::format("{}:{}{}", file.string(), hasPlace ? "" : " ", error.what())));
  }
}

void EngineRegistry::add(RegisteredEngine engine) {
  const auto place = std::lower_bound(engines_.begin(), engines_.end(), engine.name, isBefore);
  if (place == engines_.end() || place->name != engine.name) {
    engines_.insert(place, std::move(engine));
  } else if (place->file.parent_path() == engine.file.parent_path()) {
    problems_.push_back(
        tamb::EscapedText(fmt::format("{}: the engine {:?} is already registered by {}", engine.file.string(),
                                      engine.name, place->file.string())));
  }
}

std::vector<std::string> EngineRegistry::names() const {
  std::vector<std::string> names;
  for (const auto& engine : engines_) names.push_back(engine.name);
  return names;
}

const RegisteredEngine* EngineRegistry::find(const std::string& name) const {
  const auto place = std::lower_bound(engines_.begin(), engines_.end(), name, isBefore);
  return place == engines_.end() || place->name != name ? nullptr : &*place;
}

const RegisteredEngine& EngineRegistry::engineFor(const std::string& description) const {
  try {
    return *find(engines::engineNamedIn(description, names()));
  } catch (const tamb::TAMBRuntimeError& error) {
    if (problems_.empty()) throw;
    throw tamb::TAMBRuntimeError(
        fmt::format("{}; not registered: {}", error.what(), fmt::join(problems_, "; ")));
  }
}

std::optional<engines::EngineManual> manualOf(const RegisteredEngine& engine) {
  if (!engine.library.empty()) return loadEngineLibrary(engine.library).describe();
  if (engine.manual.empty()) return std::nullopt;
  try {
    return engines::manualFrom(contentOf(engine.manual));
  } catch (const std::runtime_error& error) {
    throw tamb::TAMBRuntimeError(
        fmt::format("cannot read the manual {:?}: {}", engine.manual.string(), error.what()));
  }
}

EngineToRun toRun(const RegisteredEngine& engine) {
  if (!engine.program.empty()) return EngineProgram{.file = engine.program, .arguments = engine.arguments};
  return [library = engine.library] {
    // It lives as long as the process.
    return std::shared_ptr<const engines::IEngineFactory>(&loadEngineLibrary(library), [](const auto*) {});
  };
}

std::vector<fs::path> registryFolders(const std::vector<fs::path>& first) {
  auto folders = first;
  const fs::path below = fs::path("tamb") / "engines.d";
  const auto add = [&](const fs::path& folder) {
    std::error_code ignored;
    const auto isSame = [&](const fs::path& other) { return fs::equivalent(folder, other, ignored); };
    if (std::none_of(folders.begin(), folders.end(), isSame)) folders.push_back(folder);
  };
  if (const auto user = userFolder(); !user.empty()) add(user / below);
  std::error_code error;
  const auto self = fs::read_symlink("/proc/self/exe", error);
  if (!error) add(self.parent_path().parent_path() / "share" / below);
  add(fs::path("/usr/share") / below);
  return folders;
}

}  // namespace qor::hosting
