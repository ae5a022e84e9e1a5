#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace qor::test {

/// A new directory for temporary files; the destructor removes it with everything in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string path = (std::filesystem::temp_directory_path() / "qor-test-XXXXXX").string();
    if (::mkdtemp(path.data()) == nullptr) throw std::system_error(errno, std::generic_category(), path);
    path_ = path;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace qor::test
