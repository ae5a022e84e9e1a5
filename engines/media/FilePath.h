#pragma once

#include <string>

namespace qor::engines {

/// The path of a location that FFmpeg opens as a file, whether it begins with "file:" or not; empty of an
/// URL.
std::string filePath(const std::string& location);

}  // namespace qor::engines
