#pragma once

#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

namespace qor::engines {

/// The file or location of an output. A file is written beside the output under a temporary name such as
/// "NAME.k3x9qa.part", and is renamed when it is complete and synchronised to disk. So an output with the
/// final name is always usable, a failing run keeps an earlier file, and two runs with one output do not
/// write into each other. The output has the mode of the file that it replaces and, if this process may set
/// them, its owner and group; without that group, its mode has no rights for a group. Symbolic links are
/// followed. A device or a URL is written directly.
class OutputFile {
 public:
  /// Synchronises the data of a descriptor to disk, like fsync().
  using Sync = std::function<int(int)>;

  explicit OutputFile(const std::string& location, Sync sync = ::fsync);
  /// Removes an incomplete file.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Creates the file, and returns the location to open; throws TAMBRuntimeError if that fails.
  const std::string& create();
  /// Synchronises the file, which has to be closed, to disk and renames it. Blocks for as long as the disk
  /// takes, and calls `beat` after each few MiB. Throws TAMBRuntimeError on failure. Only if the complete
  /// file cannot be renamed it stays, under the name in the error.
  void complete(const std::function<void()>& beat = [] {});

 private:
  void flush(const std::function<void()>& beat) const;

  const std::string location_;
  const Sync sync_;
  std::filesystem::path final_;  ///< empty for a device or a URL
  std::string written_;          ///< empty while no file has to be removed
};

}  // namespace qor::engines
