#pragma once

#include <string>

namespace qor::engines {

/// The path of a location that FFmpeg opens as a file, with or without "file:" in front; empty for a URL.
std::string filePath(const std::string& location);

}  // namespace qor::engines
