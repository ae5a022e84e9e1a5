#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/Require.h"
#include "programs/host/Refusal.h"

/// A service's reply reaches the host in the text of an exception.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  qor::fuzz::require(qor::programs::reasonIn(text).size() <= size, "unescaping makes nothing longer");
  return 0;
}
