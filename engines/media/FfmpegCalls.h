#pragma once

#include <string>

#include "engines/media/FfmpegLog.h"

namespace qor::engines {

/// FFmpeg's text for the error, and the first error line of the call if there was one.
std::string ffmpegErrorText(int error);

/// Throws TAMBRuntimeError with a line of `tried` and FFmpeg's text for the error.
[[noreturn]] void throwFfmpegError(int error, const std::string& tried);

/// Calls FFmpeg and throws on failure. `tried` composes its text only then.
template <class Call, class Text>
int ffmpegCall(const Call& call, const Text& tried) {
  forgetFfmpegErrorLine();
  const int result = call();
  if (result < 0) [[unlikely]] {
    throwFfmpegError(result, tried());
  }
  return result;
}

}  // namespace qor::engines
