#include "engines/media/FfmpegCalls.h"

#include <fmt/format.h>

#include <array>

#include "tamb/TAMBRuntimeError.h"

extern "C" {
#include <libavutil/error.h>
}

namespace qor::engines {

std::string ffmpegErrorText(int error) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(error, text.data(), text.size());
  const auto line = firstFfmpegErrorLine();
  return line.empty() ? std::string(text.data()) : fmt::format("{} ({})", text.data(), line);
}

void throwFfmpegError(int error, const std::string& tried) {
  throw tamb::TAMBRuntimeError(fmt::format("{}: {}", tried, ffmpegErrorText(error)));
}

}  // namespace qor::engines
