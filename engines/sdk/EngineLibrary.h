#pragma once

#include <cstdint>

#include "engines/sdk/IEngineFactory.h"

namespace qor::engines {

/// The version of the classes that an engine library and the program that loads it share: those of tamb/ and
/// IEngineFactory.h. Incremented whenever one of them changes.
inline constexpr std::uint32_t engineInterfaceVersion = 1;

/// The type of the only function that an engine library exports. The program passes the version that it was
/// compiled with; the function writes the library's version to `libraryVersion`, and returns null if the two
/// differ. The library owns the factory, which lives as long as the process.
using EngineFactoryFunction = const IEngineFactory* (*)(std::uint32_t programVersion,
                                                        std::uint32_t* libraryVersion);

/// The function's name.
inline constexpr const char* engineFactoryFunctionName = "TambEngineFactory";

}  // namespace qor::engines

/// Defines the exported function of an engine library, with a factory of that class. Use it once per library,
/// outside of all namespaces:
///
///   TAMB_ENGINE_LIBRARY(qor::engines::EngineFactory<MixerEngine>)
#define TAMB_ENGINE_LIBRARY(...)                                                                           \
  extern "C" __attribute__((visibility("default"))) const qor::engines::IEngineFactory* TambEngineFactory( \
      std::uint32_t programVersion, std::uint32_t* libraryVersion) {                                       \
    *libraryVersion = qor::engines::engineInterfaceVersion;                                                \
    if (programVersion != qor::engines::engineInterfaceVersion) return nullptr;                            \
    static const __VA_ARGS__ factory;                                                                      \
    return &factory;                                                                                       \
  }                                                                                                        \
  static_assert(true, "a semicolon may follow")
