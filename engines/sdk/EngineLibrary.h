#pragma once

#include <cstdint>

#include "engines/sdk/IEngineFactory.h"

namespace qor::engines {

/// What an engine library and the program that loads it have to agree in: the classes of tamb/ and of
/// IEngineFactory.h, which both are compiled with. It is counted up whenever one of them changes.
inline constexpr std::uint32_t engineInterfaceVersion = 1;

/// The type of the one function that an engine library exports. It is given the version that the program was
/// compiled with, writes its own to `libraryVersion`, and returns null when the two differ. The factory
/// belongs to the library, and lives as long as the process.
using EngineFactoryFunction = const IEngineFactory* (*)(std::uint32_t programVersion,
                                                        std::uint32_t* libraryVersion);

/// The function's name.
inline constexpr const char* engineFactoryFunctionName = "TambEngineFactory";

}  // namespace qor::engines

/// Defines the exported function of an engine library, with a factory of that class. Once in each library,
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
