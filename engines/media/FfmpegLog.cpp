#include "engines/media/FfmpegLog.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <mutex>
#include <string>
#include <string_view>

#include "runtime/tamb/WriteLogRecord.h"

extern "C" {
#include <libavutil/log.h>
}

namespace qor::engines {

namespace {

/// FFmpeg's log of one thread.
struct ThreadLog {
  /// FFmpeg may write a line in several calls.
  std::string pending;
  std::string lastWritten;
  std::string firstError;
};

ThreadLog& threadLog() {
  thread_local ThreadLog log;
  return log;
}

tamb::LogLevel frameworkLevel(int level) {
  if (level <= AV_LOG_ERROR) return tamb::LogLevel::Error;
  if (level <= AV_LOG_WARNING) return tamb::LogLevel::Warning;
  return tamb::LogLevel::Debug;
}

/// "name: ", without the address in FFmpeg's own prefix.
std::string prefix(void* object) {
  const AVClass* const itsClass = object == nullptr ? nullptr : *static_cast<AVClass**>(object);
  if (itsClass == nullptr || itsClass->item_name == nullptr) {
    return {};
  }
  const char* const name = itsClass->item_name(object);
  return name == nullptr ? std::string() : std::string(name) + ": ";
}

void writeLine(int level, std::string line) {
  auto& log = threadLog();
  if (level <= AV_LOG_ERROR && log.firstError.empty()) {
    log.firstError = line;
  }
  // For a broken file FFmpeg repeats the same line thousands of times.
  if (line == log.lastWritten) {
    return;
  }
  tamb::WriteLogRecord(frameworkLevel(level), "FFmpeg: " + line);
  log.lastWritten = std::move(line);
}

void receive(void* object, int level, const char* format, va_list arguments) {
  level &= 0xff;  // The other bits are a colour.
  if (level > AV_LOG_INFO) {
    return;
  }
  try {
    std::array<char, 1024> text{};
    int printPrefix = 0;
    av_log_format_line2(object, level, format, arguments, text.data(), static_cast<int>(text.size()),
                        &printPrefix);
    auto& pending = threadLog().pending;
    if (pending.empty()) {
      pending = prefix(object);
    }
    pending += text.data();
    if (!pending.ends_with('\n') && pending.size() < 4 * text.size()) {
      return;
    }
    std::string line;
    line.swap(pending);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r' || line.back() == ' ')) {
      line.pop_back();
    }
    // Some records have several lines, and some quote bytes of files that are not text.
    std::replace(line.begin(), line.end(), '\n', ' ');
    std::replace_if(
        line.begin(), line.end(), [](char each) { return each < ' ' || each > '~'; }, '?');
    writeLine(level, std::move(line));
  } catch (...) {
    // Exceptions must not pass through FFmpeg, which is C; a lost log line is no reason to terminate.
    tamb::WriteLogRecord(tamb::LogLevel::Warning, "FFmpeg: a log line was lost");
  }
}

}  // namespace

void sendFfmpegLogToFramework() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_callback(receive); });
}

std::string firstFfmpegErrorLine() { return threadLog().firstError; }

void forgetFfmpegErrorLine() { threadLog().firstError.clear(); }

}  // namespace qor::engines
