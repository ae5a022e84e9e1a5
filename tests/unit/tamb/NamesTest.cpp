#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <string>
#include <vector>

#include "tamb/LogContext.h"
#include "tamb/LogLevel.h"
#include "tamb/TambType.h"

namespace {

using tamb::LogLevel;
using tamb::TambType;
using tamb::ToString;
using testing::HasSubstr;
using testing::SizeIs;

TEST(TambTypeNames, AreTheEnumeratorsNames) {
  const std::vector<std::pair<TambType, std::string>> names = {
      {TambType::Undefined, "Undefined"},
      {TambType::Bool, "Bool"},
      {TambType::Int8, "Int8"},
      {TambType::Uint8, "Uint8"},
      {TambType::Int16, "Int16"},
      {TambType::Uint16, "Uint16"},
      {TambType::Int32, "Int32"},
      {TambType::Uint32, "Uint32"},
      {TambType::Int64, "Int64"},
      {TambType::Uint64, "Uint64"},
      {TambType::Float, "Float"},
      {TambType::Double, "Double"},
      {TambType::String, "String"},
      {TambType::EditRate, "EditRate"},
      {TambType::MediaTime, "MediaTime"},
      {TambType::TimeLimits, "TimeLimits"},
      {TambType::MediaTimeCode, "MediaTimeCode"},
      {TambType::GenericParameters, "GenericParameters"},
      {TambType::UTF8String, "UTF8String"},
      {TambType::UTF16String, "UTF16String"},
      {TambType::ColorSpace, "ColorSpace"},
      {TambType::FourCC, "FourCC"},
      {TambType::VideoChroma, "VideoChroma"},
      {TambType::VCodecFamily, "VCodecFamily"},
      {TambType::ACodecFamily, "ACodecFamily"},
      {TambType::AncillaryFamily, "AncillaryFamily"},
      {TambType::MetadataFamily, "MetadataFamily"},
      {TambType::WrapperFormat, "WrapperFormat"},
      {TambType::ContentType, "ContentType"},
      {TambType::ProResCodecVariant, "ProResCodecVariant"},
      {TambType::EndiannessType, "EndiannessType"},
      {TambType::TrackLayout, "TrackLayout"},
      {TambType::QtFileLayout, "QtFileLayout"},
      {TambType::ParametersCollectionPrototype, "ParametersCollectionPrototype"},
      {TambType::ParametersCollectionInstance, "ParametersCollectionInstance"},
      {TambType::VideoAspectRatio, "VideoAspectRatio"},
      {TambType::ElementFactoryType, "ElementFactoryType"},
      {TambType::StepType, "StepType"},
      {TambType::TambType_end_delimiter, "TambType_end_delimiter"},
  };
  std::set<TambType> types;
  for (const auto& [type, name] : names) {
    EXPECT_EQ(ToString(type), name);
    types.insert(type);
  }
  EXPECT_THAT(types, SizeIs(39));
}

TEST(TambTypeNames, HoldTheNumberOfAnUnknownTag) {
  EXPECT_THAT(ToString(static_cast<TambType>(39)), HasSubstr("39"));
  EXPECT_THAT(ToString(static_cast<TambType>(-1)), HasSubstr("-1"));
  EXPECT_THAT(ToString(static_cast<TambType>(std::numeric_limits<int>::min())), HasSubstr("-2147483648"));
}

TEST(LogLevelNames, AreTheEnumeratorsNames) {
  EXPECT_EQ(ToString(LogLevel::Info), "Info");
  EXPECT_EQ(ToString(LogLevel::Warning), "Warning");
  EXPECT_EQ(ToString(LogLevel::Error), "Error");
  EXPECT_EQ(ToString(LogLevel::Debug), "Debug");
}

TEST(LogLevelNames, HoldTheNumberOfAnUnknownLevel) {
  EXPECT_THAT(ToString(static_cast<LogLevel>(4)), HasSubstr("4"));
  EXPECT_THAT(ToString(static_cast<LogLevel>(-7)), HasSubstr("-7"));
}

TEST(NumberTexts, AreDecimal) {
  EXPECT_EQ(ToString(0), "0");
  EXPECT_EQ(ToString(std::numeric_limits<int>::max()), "2147483647");
  EXPECT_EQ(ToString(std::numeric_limits<int>::min()), "-2147483648");
}

}  // namespace
