#include <cstddef>
#include <cstdint>
#include <string>

#include "engines/sdk/EngineManual.h"
#include "fuzz/ReadableLine.h"
#include "tamb/TAMBRuntimeError.h"

namespace {

using qor::fuzz::require;

/// A complaint quotes some of the text, each piece cut.
constexpr std::size_t longestComplaint = 1'000;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const auto manual = qor::engines::manualFrom({reinterpret_cast<const char*>(data), size});
    require(!manual.name.empty() && !manual.step.empty(), "a manual has a name and a step");
    // Texts that are not UTF-8 are never written as they are.
    const std::string written = qor::engines::manualJson(manual);
    require(qor::engines::manualJson(qor::engines::manualFrom(written)) == written,
            "it is read as it is written");
    require(!qor::engines::manualText(manual).empty(), "it can be printed");
  } catch (const tamb::TAMBRuntimeError& error) {
    qor::fuzz::requireReadableLine(error.what(), longestComplaint);
  }
  return 0;
}
