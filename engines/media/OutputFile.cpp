#include "engines/media/OutputFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
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

}  // namespace

OutputFile::OutputFile(const std::string& location) : location_(location) {
  const auto path = filePath(location);
  std::error_code error;
  const auto type = fs::status(path, error).type();
  if (!path.empty() && (type == fs::file_type::not_found || type == fs::file_type::regular)) {
    // Through symbolic links, which a new name would replace.
    final_ = fs::weakly_canonical(path, error);
    if (error || final_.empty()) {
      final_ = fs::absolute(path, error);
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
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    auto name = nameBeside(final_);
    // Never one that is there already: that would be another run's, or the user's.
    const int descriptor = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
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
  std::error_code error;
  fs::rename(written_, final_, error);
  if (error) {
    throw tamb::TAMBRuntimeError(
        fmt::format("Cannot rename {:?} to {:?}: {}", written_, location_, error.message()));
  }
  written_.clear();
}

}  // namespace qor::engines
