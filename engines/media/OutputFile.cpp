#include "engines/media/OutputFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <optional>
#include <random>
#include <string_view>
#include <system_error>
#include <utility>

#include "engines/media/FilePath.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

namespace fs = std::filesystem;

namespace {

/// Nobody meets so many files of the same name by chance.
constexpr int mostAttempts = 100;
/// Without those bits that run a program as somebody else.
constexpr mode_t permissions = S_IRWXU | S_IRWXG | S_IRWXO;

/// As in ".k3x9qa.part".
std::string randomEnding() {
  constexpr std::string_view characters = "abcdefghijklmnopqrstuvwxyz0123456789";
  constexpr int length = 6;
  std::random_device random;
  std::uniform_int_distribution<std::size_t> index(0, characters.size() - 1);
  std::string ending = ".";
  for (int count = 0; count < length; ++count) {
    ending += characters[index(random)];
  }
  return ending + ".part";
}

/// A name beside the path that is no longer than names may be.
std::string nameBeside(const fs::path& path) {
  const auto ending = randomEnding();
  return (path.parent_path() / (path.filename().string().substr(0, NAME_MAX - ending.size()) + ending))
      .string();
}

/// None when there is no regular file.
std::optional<struct stat> statusOf(const fs::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  return status;
}

/// Gives a file the owner, the group and the mode of the one that it replaces, as far as this process may:
/// the group alone, when only root may give files away. A file system without modes is no reason to fail.
void takeOver(const struct stat& replaced, const std::string& file) {
  if (::chown(file.c_str(), replaced.st_uid, replaced.st_gid) != 0) {
    static_cast<void>(::chown(file.c_str(), static_cast<uid_t>(-1), replaced.st_gid) == 0);
  }
  static_cast<void>(::chmod(file.c_str(), replaced.st_mode & permissions) == 0);
}

}  // namespace

OutputFile::OutputFile(const std::string& location) : location_(location) {
  const auto path = filePath(location);
  std::error_code error;
  const auto type = fs::status(path, error).type();
  if (!path.empty() && (type == fs::file_type::not_found || type == fs::file_type::regular)) {
    // From the root: FFmpeg would take the beginning of a relative "x:y.wav" for a scheme.
    const auto absolute = fs::absolute(path, error);
    // Through symbolic links, which a new name would replace.
    final_ = fs::weakly_canonical(absolute, error);
    if (error || final_.empty()) {
      final_ = absolute;
    }
  }
}

OutputFile::~OutputFile() {
  if (!written_.empty()) {
    std::error_code ignored;
    fs::remove(written_, ignored);
  }
}

const std::string& OutputFile::create() {
  if (final_.empty()) {
    return location_;
  }
  const auto replaced = statusOf(final_);
  // Not readable by more users than the file that it replaces, from the start.
  const mode_t mode = replaced ? (replaced->st_mode & permissions) | S_IRUSR | S_IWUSR : 0666;
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    auto name = nameBeside(final_);
    // Never one that is there already: that would be another run's, or the user's.
    const int descriptor = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (descriptor >= 0) {
      ::close(descriptor);
      written_ = std::move(name);
      return written_;
    }
    if (errno != EEXIST) {
      break;
    }
  }
  throw tamb::TAMBRuntimeError(
      fmt::format("Cannot write {:?}: {}", location_, std::generic_category().message(errno)));
}

void OutputFile::complete() {
  if (written_.empty()) {
    return;
  }
  if (const auto replaced = statusOf(final_)) {
    takeOver(*replaced, written_);
  }
  std::error_code error;
  fs::rename(written_, final_, error);
  if (error) {
    throw tamb::TAMBRuntimeError(
        fmt::format("Cannot rename {:?} to {:?}: {}", written_, location_, error.message()));
  }
  written_.clear();
}

}  // namespace qor::engines
