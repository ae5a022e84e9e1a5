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

/// More collisions of random names than this are not accidental.
constexpr int mostAttempts = 100;
/// Without the set-user-ID, set-group-ID and sticky bits.
constexpr mode_t permissions = S_IRWXU | S_IRWXG | S_IRWXO;

/// The limit that Linux has.
constexpr int mostLinks = 40;
/// Bytes. A slow disk writes this much well within the time-out of a ping.
constexpr off_t flushedAtOnce = off_t{16} << 20;

/// For example ".k3x9qa.part".
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

/// A temporary name in the same folder, cut to the longest valid file name.
std::string nameBeside(const fs::path& path) {
  const auto ending = randomEnding();
  return (path.parent_path() / (path.filename().string().substr(0, NAME_MAX - ending.size()) + ending))
      .string();
}

/// Empty if the path is not a regular file.
std::optional<struct stat> statusOf(const fs::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  return status;
}

/// Gives a file the owner, the group and the mode of the file that it replaces, as far as permitted: only the
/// group if this process is not root. Errors are ignored, because some file systems have no modes.
void takeOver(const struct stat& replaced, const std::string& file) {
  if (::chown(file.c_str(), replaced.st_uid, replaced.st_gid) != 0) {
    static_cast<void>(::chown(file.c_str(), static_cast<uid_t>(-1), replaced.st_gid) == 0);
  }
  auto mode = replaced.st_mode & permissions;
  const auto own = statusOf(file);
  if (!own || own->st_gid != replaced.st_gid) {
    mode &= ~static_cast<mode_t>(S_IRWXG);  // These rights were meant for another group.
  }
  static_cast<void>(::chmod(file.c_str(), mode) == 0);
}

/// The target of a path after following its symbolic links, whether it exists or not. Renaming to the path
/// itself would replace the link.
fs::path followed(fs::path path) {
  std::error_code error;
  for (int count = 0; count < mostLinks && fs::is_symlink(path, error); ++count) {
    const auto target = fs::read_symlink(path, error);
    if (error) {
      break;
    }
    path = path.parent_path() / target;
  }
  auto canonical = fs::weakly_canonical(path, error);
  return error || canonical.empty() ? path : canonical;
}

/// Synchronises a file to disk part by part, because the kernel may cache gigabytes. Returns 0 or an error
/// number.
int flushParts(int descriptor, const std::function<void()>& beat) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) {
    return errno;
  }
  for (off_t at = 0; at < status.st_size; at += flushedAtOnce) {
    constexpr auto andWait = SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    if (::sync_file_range(descriptor, at, flushedAtOnce, andWait) != 0) {
      // The file system or the kernel may not support it; fsync() then does all the work.
      return errno == EIO || errno == ENOSPC || errno == EDQUOT ? errno : 0;
    }
    beat();
  }
  return 0;
}

}  // namespace

OutputFile::OutputFile(const std::string& location, Sync sync) : location_(location), sync_(std::move(sync)) {
  const auto path = filePath(location);
  std::error_code error;
  const auto type = fs::status(path, error).type();
  if (!path.empty() && (type == fs::file_type::not_found || type == fs::file_type::regular)) {
    // An absolute path, because FFmpeg would mistake the beginning of a relative "x:y.wav" for a scheme.
    const auto absolute = fs::absolute(path, error);
    final_ = followed(error ? fs::path(path) : absolute);
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
  // From the start, no user may read it who cannot read the file that it replaces; its group is set later.
  const mode_t mode = statusOf(final_) ? S_IRUSR | S_IWUSR : 0666;
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    auto name = nameBeside(final_);
    // O_EXCL: an existing file belongs to another run or to the user.
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

void OutputFile::complete(const std::function<void()>& beat) {
  if (written_.empty()) {
    return;
  }
  flush(beat);
  if (const auto replaced = statusOf(final_)) {
    takeOver(*replaced, written_);
  }
  // From here on, the complete file is not removed, whatever happens.
  const auto written = std::exchange(written_, {});
  std::error_code error;
  fs::rename(written, final_, error);
  if (error) {
    throw tamb::TAMBRuntimeError(fmt::format("Cannot rename {:?} to {:?}: {}; the complete file stays there",
                                             written, location_, error.message()));
  }
  // Ignores errors: the new name is visible even if the folder cannot be synchronised.
  if (const int folder = ::open(final_.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      folder >= 0) {
    static_cast<void>(sync_(folder) == 0);
    ::close(folder);
  }
}

void OutputFile::flush(const std::function<void()>& beat) const {
  const int file = ::open(written_.c_str(), O_WRONLY | O_CLOEXEC);
  int error = file < 0 ? errno : flushParts(file, beat);
  // EINVAL and EROFS: the file system does not support synchronisation.
  if (error == 0 && sync_(file) != 0 && errno != EINVAL && errno != EROFS) {
    error = errno;
  }
  if (file >= 0) {
    ::close(file);
  }
  if (error != 0) {
    throw tamb::TAMBRuntimeError(
        fmt::format("Cannot flush {:?} to its disk: {}", location_, std::generic_category().message(error)));
  }
}

}  // namespace qor::engines
