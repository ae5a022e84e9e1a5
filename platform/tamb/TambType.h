#pragma once

#include <string>

namespace tamb {

/// The type tag of one parameter of a parameters collection. The numbers are part of the wire format.
enum class TambType : int {
  Undefined = 0,
  Bool = 1,
  Int8 = 2,
  Uint8 = 3,
  Int16 = 4,
  Uint16 = 5,
  Int32 = 6,
  Uint32 = 7,
  Int64 = 8,
  Uint64 = 9,
  Float = 10,
  Double = 11,
  String = 12,
  EditRate = 13,
  MediaTime = 14,
  TimeLimits = 15,
  MediaTimeCode = 16,
  GenericParameters = 17,
  UTF8String = 18,
  UTF16String = 19,
  ColorSpace = 20,
  FourCC = 21,
  VideoChroma = 22,
  VCodecFamily = 23,
  ACodecFamily = 24,
  AncillaryFamily = 25,
  MetadataFamily = 26,
  WrapperFormat = 27,
  ContentType = 28,
  ProResCodecVariant = 29,
  EndiannessType = 30,
  TrackLayout = 31,
  QtFileLayout = 32,
  ParametersCollectionPrototype = 33,
  ParametersCollectionInstance = 34,
  VideoAspectRatio = 35,
  ElementFactoryType = 36,
  StepType = 37,
  TambType_end_delimiter = 38,
};

/// The printable name of a tag: its enumerator's name, or a text holding the number for any other value.
std::string ToString(TambType type);

}  // namespace tamb
