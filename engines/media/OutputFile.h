#pragma once

#include <filesystem>
#include <string>

namespace qor::engines {

/// Where an output is written. A file is written under its name with ".part" behind, and gets its own name
/// when it is complete: whoever finds it can use it, and a run that fails takes nothing away that was there.
/// What is no file, a device or an URL, is written as it is.
class OutputFile {
 public:
  explicit OutputFile(const std::string& location);
  /// Removes what was not completed.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// What to open.
  const std::string& writtenLocation() const { return written_; }
  /// Gives the file its own name; throws TAMBRuntimeError when that fails. To be closed by then.
  void complete();

 private:
  const std::string location_;
  std::filesystem::path final_;  ///< empty for what is no file
  std::string written_;
  bool completed_ = false;
};

}  // namespace qor::engines
