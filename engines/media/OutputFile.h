#pragma once

#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

namespace qor::engines {

/// Where an output is written. A file is written beside its place, under a name of its own as in
/// "NAME.k3x9qa.part", and gets its name when it is complete and on the disk: whoever finds it can use it, a
/// run that fails leaves an earlier file alone, and two runs with one output do not write into each other. It
/// then has the mode of the file that it replaces and, where this process may set them, its owner and group;
/// without that group, no rights for a group. Symbolic links are followed. A device or a URL is written
/// directly.
class OutputFile {
 public:
  /// Writes the data of a descriptor to the disk, as fsync().
  using Sync = std::function<int(int)>;

  explicit OutputFile(const std::string& location, Sync sync = ::fsync);
  /// Removes what was not completed.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Makes the file, and returns what to open; throws TAMBRuntimeError when that fails.
  const std::string& create();
  /// Writes the file to the disk and gives it its own name; to be closed by then. Blocks for as long as the
  /// disk takes, and calls `beat` after each few MiB. Throws TAMBRuntimeError when that fails. Only when the
  /// complete file cannot be renamed it stays, under the name that the error has.
  void complete(const std::function<void()>& beat = [] {});

 private:
  void flush(const std::function<void()>& beat) const;

  const std::string location_;
  const Sync sync_;
  std::filesystem::path final_;  ///< empty for what is no file
  std::string written_;          ///< empty as long as there is nothing to remove
};

}  // namespace qor::engines
