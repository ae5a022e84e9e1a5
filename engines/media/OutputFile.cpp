#include "engines/media/OutputFile.h"

#include <fmt/format.h>

#include <system_error>

#include "tamb/TAMBRuntimeError.h"

extern "C" {
#include <libavformat/avio.h>
}

namespace qor::engines {

namespace fs = std::filesystem;

OutputFile::OutputFile(const std::string& location)
    : location_(location.starts_with("file:") ? location.substr(5) : location), written_(location_) {
  const auto* const protocol = avio_find_protocol_name(location_.c_str());
  std::error_code error;
  const auto status = fs::status(location_, error);
  const bool isFile = protocol != nullptr && std::string(protocol) == "file" &&
                      (status.type() == fs::file_type::not_found || status.type() == fs::file_type::regular);
  if (isFile) {
    // Through symbolic links, which a new name would replace.
    final_ = fs::weakly_canonical(location_, error);
    if (error || final_.empty()) {
      final_ = location_;
    }
    written_ = final_.string() + ".part";
  }
}

OutputFile::~OutputFile() {
  if (!completed_ && !final_.empty()) {
    std::error_code ignored;
    fs::remove(written_, ignored);
  }
}

void OutputFile::complete() {
  if (!final_.empty()) {
    std::error_code error;
    fs::rename(written_, final_, error);
    if (error) {
      throw tamb::TAMBRuntimeError(
          fmt::format("Cannot rename {:?} to {:?}: {}", written_, location_, error.message()));
    }
  }
  completed_ = true;
}

}  // namespace qor::engines
