#include <cstdint>

extern "C" __attribute__((visibility("default"))) const void* TambEngineFactory(
    std::uint32_t /*programVersion*/, std::uint32_t* libraryVersion) {
  *libraryVersion = 4'000'000'000;
  return nullptr;
}
