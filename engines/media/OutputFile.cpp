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

/// As many as Linux follows.
constexpr int mostLinks = 40;
/// Bytes that a slow disk writes well within the time-out of a ping.
constexpr off_t flushedAtOnce = off_t{16} << 20;

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
  auto mode = replaced.st_mode & permissions;
  const auto own = statusOf(file);
  if (!own || own->st_gid != replaced.st_gid) {
    mode &= ~static_cast<mode_t>(S_IRWXG);  // They were meant for another group.
  }
  static_cast<void>(::chmod(file.c_str(), mode) == 0);
}

/// What a path names behind its symbolic links, whether it exists or not: a rename would replace the link.
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

/// Writes a file to the disk part by part, since a system may keep gigabytes back. 0, or an error.
int flushParts(int descriptor, const std::function<void()>& beat) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) {
    return errno;
  }
  for (off_t at = 0; at < status.st_size; at += flushedAtOnce) {
    constexpr auto andWait = SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    if (::sync_file_range(descriptor, at, flushedAtOnce, andWait) != 0) {
      // A file system that cannot do it, or a system: fsync() does everything then.
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
    // From the root: FFmpeg would take the beginning of a relative "x:y.wav" for a scheme.
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
  // Not readable by more users than the file that it replaces, from the start: its group is not yet that
  // one's.
  const mode_t mode = statusOf(final_) ? S_IRUSR | S_IWUSR : 0666;
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

void OutputFile::complete(const std::function<void()>& beat) {
  if (written_.empty()) {
    return;
  }
  flush(beat);
  if (const auto replaced = statusOf(final_)) {
    takeOver(*replaced, written_);
  }
  // Whatever follows, the complete file is not removed.
  const auto written = std::exchange(written_, {});
  std::error_code error;
  fs::rename(written, final_, error);
  if (error) {
    throw tamb::TAMBRuntimeError(fmt::format("Cannot rename {:?} to {:?}: {}; the complete file stays there",
                                             written, location_, error.message()));
  }
  // A folder that cannot be synced has the new name all the same.
  if (const int folder = ::open(final_.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      folder >= 0) {
    static_cast<void>(sync_(folder) == 0);
    ::close(folder);
  }
}

void OutputFile::flush(const std::function<void()>& beat) const {
  const int file = ::open(written_.c_str(), O_WRONLY | O_CLOEXEC);
  int error = file < 0 ? errno : flushParts(file, beat);
  // EINVAL and EROFS: the file system has nothing to sync.
  if (error == 0 && sync_(file) != 0 && errno != EINVAL && errno != EROFS) {
    error = errno;
  }
  if (file >= 0) {
    ::close(file);
  }
  if (error != 0) {
    throw tamb::TAMBRuntimeError(
        fmt::format("Cannot write {:?} to its disk: {}", location_, std::generic_category().message(error)));
  }
}

}  // namespace qor::engines
