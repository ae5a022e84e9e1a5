#include "tamb/TambType.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <string_view>

namespace tamb {

namespace {

/// In the order of the numbers, which have no gap.
constexpr auto names = std::to_array<std::string_view>({
    "Undefined",
    "Bool",
    "Int8",
    "Uint8",
    "Int16",
    "Uint16",
    "Int32",
    "Uint32",
    "Int64",
    "Uint64",
    "Float",
    "Double",
    "String",
    "EditRate",
    "MediaTime",
    "TimeLimits",
    "MediaTimeCode",
    "GenericParameters",
    "UTF8String",
    "UTF16String",
    "ColorSpace",
    "FourCC",
    "VideoChroma",
    "VCodecFamily",
    "ACodecFamily",
    "AncillaryFamily",
    "MetadataFamily",
    "WrapperFormat",
    "ContentType",
    "ProResCodecVariant",
    "EndiannessType",
    "TrackLayout",
    "QtFileLayout",
    "ParametersCollectionPrototype",
    "ParametersCollectionInstance",
    "VideoAspectRatio",
    "ElementFactoryType",
    "StepType",
    "TambType_end_delimiter",
});
static_assert(names.size() == static_cast<std::size_t>(TambType::TambType_end_delimiter) + 1);

}  // namespace

std::string ToString(TambType type) {
  const auto number = static_cast<int>(type);
  if (number < 0 || static_cast<std::size_t>(number) >= names.size()) {
    return fmt::format("TambType({})", number);
  }
  return std::string(names[static_cast<std::size_t>(number)]);
}

}  // namespace tamb
