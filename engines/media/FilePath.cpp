#include "engines/media/FilePath.h"

#include <string_view>

extern "C" {
#include <libavformat/avio.h>
}

namespace qor::engines {

std::string filePath(const std::string& location) {
  constexpr std::string_view scheme = "file:";
  if (location.starts_with(scheme)) {
    return location.substr(scheme.size());
  }
  const auto* const protocol = avio_find_protocol_name(location.c_str());
  return protocol != nullptr && std::string_view(protocol) == "file" ? location : std::string();
}

}  // namespace qor::engines
