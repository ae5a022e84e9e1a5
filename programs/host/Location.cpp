#include "programs/host/Location.h"

#include <optional>
#include <string_view>

#include "engines/sdk/PercentEncoding.h"
#include "runtime/base/Utf8.h"

namespace qor::programs {

namespace {

using engines::percentEncodedKey;
using nlohmann::json;

constexpr std::string_view fileScheme = "file:";
constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view inSchemes = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-.";

bool isUrl(std::string_view location) {
  // The one scheme of FFmpeg's whose options stand ahead of the colon.
  if (location.starts_with("subfile,")) return true;
  const auto end = location.find_first_not_of(inSchemes);
  return end != std::string_view::npos && end >= 2 && location[end] == ':' &&
         letters.find(location.front()) != std::string_view::npos;
}

std::string absolutePath(const std::string& path, const std::filesystem::path& folder) {
  if (path.empty()) return path;
  return (folder / path).string();
}

/// None for what is not a location.
std::optional<std::string> locationIn(const json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (!value.is_object() || value.size() != 1) return std::nullopt;
  const auto encoded = value.find(percentEncodedKey);
  if (encoded == value.end() || !encoded->is_string()) return std::nullopt;
  return engines::percentDecoded(encoded->get_ref<const std::string&>());
}

}  // namespace

std::string absoluteLocation(const std::string& location, const std::filesystem::path& folder) {
  if (location.starts_with(fileScheme)) {
    return std::string(fileScheme) + absolutePath(location.substr(fileScheme.size()), folder);
  }
  return location == "-" || isUrl(location) ? location : absolutePath(location, folder);
}

json locationValue(const std::string& location) {
  if (base::isUtf8(location)) return location;
  return {{percentEncodedKey, engines::percentEncoded(location)}};
}

void makeLocationsAbsolute(json& description, const std::vector<engines::ManualKey>& keys,
                           const std::filesystem::path& folder) {
  if (!description.is_object()) return;
  for (const auto& key : keys) {
    const auto value = description.find(key.name);
    if (value == description.end()) continue;
    if (key.type == engines::KeyType::Object) makeLocationsAbsolute(*value, key.keys, folder);
    if (key.type != engines::KeyType::Location) continue;
    if (const auto location = locationIn(*value)) *value = locationValue(absoluteLocation(*location, folder));
  }
}

}  // namespace qor::programs
