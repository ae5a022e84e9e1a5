#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "fuzz/ReadableLine.h"
#include "hosting/EngineRegistration.h"

namespace {

using qor::fuzz::require;

/// An error text quotes a part of the file.
constexpr std::size_t longestComplaint = 500;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const auto read = qor::hosting::parseEngineRegistration(text);
    require(!read.name.empty() && read.name.size() <= 64, "an engine has a short name");
    require(read.library.empty() != read.program.empty(), "an engine is a library or a program");
    require(read.library.empty() || read.arguments.empty(), "arguments are those of a program");
    require(read.summary.find('\n') == std::string::npos, "a summary is one line");
    require(read.library.empty() || read.manual.empty(), "a manual is that of a program");
    for (const auto& path : {read.library, read.program, read.manual})
      require(path.find('\0') == std::string::npos, "no path ends before its end");
    require(!read.pathPlace.empty(), "a path has its place");
  } catch (const std::runtime_error& error) {
    qor::fuzz::requireReadableLine(error.what(), longestComplaint);
  }
  return 0;
}
