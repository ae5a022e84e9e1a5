#include <cstdint>

#include "engines/sdk/IEngineFactory.h"

extern "C" __attribute__((visibility("default"))) const qor::engines::IEngineFactory* TambEngineFactory(
    std::uint32_t /*programVersion*/, std::uint32_t* libraryVersion) {
  *libraryVersion = 4'000'000'000;
  return nullptr;
}
