#include "engines/media/FfmpegCalls.h"

#include <fmt/format.h>

#include <array>

#include "tamb/TAMBRuntimeError.h"

extern "C" {
#include <libavutil/error.h>
}

namespace qor::engines {

void throwFfmpegError(int error, const std::string& tried) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(error, text.data(), text.size());
  const auto line = firstFfmpegErrorLine();
  throw tamb::TAMBRuntimeError(line.empty() ? fmt::format("{}: {}", tried, text.data())
                                            : fmt::format("{}: {} ({})", tried, text.data(), line));
}

}  // namespace qor::engines
