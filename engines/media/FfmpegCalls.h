#pragma once

#include <string>

#include "engines/media/FfmpegLog.h"

namespace qor::engines {

/// FFmpeg's text for the error, and the first error line of the call if there is one.
std::string ffmpegErrorText(int error);

/// Throws TAMBRuntimeError in one line: what was tried, and FFmpeg's text for the error.
[[noreturn]] void throwFfmpegError(int error, const std::string& tried);

/// Makes a call into FFmpeg and throws if it fails. `tried` composes its text only then.
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
