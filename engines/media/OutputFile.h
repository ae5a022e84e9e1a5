#pragma once

#include <filesystem>
#include <string>

namespace qor::engines {

/// Where an output is written. A file is written beside its place, under a name of its own as in
/// "NAME.k3x9qa.part", and gets its name when it is complete: whoever finds it can use it, a run that fails
/// leaves an earlier file alone, and two runs with one output do not write into each other. It then has the
/// mode of the file that it replaces and, where this process may set them, its owner and group. A device or a
/// URL is written directly.
class OutputFile {
 public:
  explicit OutputFile(const std::string& location);
  /// Removes what was not completed.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Makes the file, and returns what to open; throws TAMBRuntimeError when that fails.
  const std::string& create();
  /// Gives the file its own name; throws TAMBRuntimeError when that fails. To be closed by then.
  void complete();

 private:
  const std::string location_;
  std::filesystem::path final_;  ///< empty for what is no file
  std::string written_;          ///< empty as long as there is nothing to remove
};

}  // namespace qor::engines
