#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "engines/sdk/EngineManual.h"
#include "hosting/EngineToRun.h"

namespace qor::hosting {

/// An engine that can be started.
struct RegisteredEngine {
  std::string name = {};
  /// What it is for, in one line; may be empty.
  std::string summary = {};
  /// Absolute paths, of which one is given: a shared library that offers the engine, or a program that is it.
  std::filesystem::path library = {};
  std::filesystem::path program = {};
  std::vector<std::string> arguments = {};
  /// The program's manual; empty when it has none, and for a library, which has its own.
  std::filesystem::path manual = {};
  /// The file that registers it.
  std::filesystem::path file = {};
};

/// The engines that the files "*.json" of some folders register. Read once, when it is made; const from then
/// on, hence for any thread. docs/engine-libraries.md describes the files.
class EngineRegistry {
 public:
  /// Of two engines with one name, that of the earlier folder counts. Within a folder, that of the file whose
  /// name sorts first counts, and the other one is a problem. A folder that does not exist holds nothing.
  /// Bad files and folders that cannot be read are problems, and hurt no other file.
  explicit EngineRegistry(const std::vector<std::filesystem::path>& folders);

  /// By their names.
  const std::vector<RegisteredEngine>& engines() const { return engines_; }
  std::vector<std::string> names() const;
  /// Null when there is none of that name.
  const RegisteredEngine* find(const std::string& name) const;
  /// The engine that a description's key "engine" names. Throws TAMBRuntimeError, one line that quotes what
  /// is wrong, lists the names there are, and ends in the problems if there are any.
  const RegisteredEngine& engineFor(const std::string& description) const;

  /// One line each, of UTF-8 without control characters: the path of the file or folder, the place in it as
  /// in
  /// ":3:14" where it has one, and what is wrong.
  const std::vector<std::string>& problems() const { return problems_; }

 private:
  void readFolder(const std::filesystem::path& folder);
  void readFile(const std::filesystem::path& file);
  void add(RegisteredEngine engine);

  std::vector<RegisteredEngine> engines_;
  std::vector<std::string> problems_;
};

/// The manual of a registered engine; none for a program that registers none. Loads an engine library into
/// this process. Throws TAMBRuntimeError, one line, when that fails or the program's manual cannot be read.
std::optional<engines::EngineManual> manualOf(const RegisteredEngine& engine);

/// What the process of a registered engine runs. A library is loaded by the loader, there.
EngineToRun toRun(const RegisteredEngine& engine);

/// The folders of this program's registry, in the order that counts: `first`; the user's,
/// $XDG_DATA_HOME/tamb/engines.d, where $XDG_DATA_HOME is ~/.local/share unless it is set;
/// ../share/tamb/engines.d beside the program, which holds what came with it; and /usr/share/tamb/engines.d.
std::vector<std::filesystem::path> registryFolders(const std::vector<std::filesystem::path>& first);

}  // namespace qor::hosting
