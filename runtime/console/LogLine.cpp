#include "runtime/console/LogLine.h"

#include <fmt/format.h>

#include <utility>

#include "runtime/base/Mutex.h"
#include "runtime/console/OneLine.h"
#include "runtime/tamb/EscapedText.h"
#include "tamb/LogContext.h"

namespace qor::console {

namespace {

constexpr std::size_t longestId = 200;
/// Level and time, which have a fixed width, and the spaces after them.
constexpr std::size_t widthBeforeOrigin = 8 + std::string_view("2026-03-01T12:34:56.789012Z ").size();

struct Origin {
  base::Mutex mutex;
  std::string text QOR_GUARDED_BY(mutex);
};

/// Never destroyed: objects destroyed after main() has returned still log.
Origin& origin() {
  static auto& instance = *new Origin;
  return instance;
}

std::string logOrigin() {
  Origin& now = origin();
  const base::Lock lock(now.mutex);
  return now.text;
}

}  // namespace

std::string engineName(std::string_view workflowManagerId, std::uint32_t engineId) {
  return fmt::format("engine {} of \"{}\"", engineId,
                     oneLine(tamb::EscapedText(workflowManagerId.substr(0, longestId + 4)), longestId));
}

void setLogOrigin(std::string newOrigin) {
  Origin& now = origin();
  const base::Lock lock(now.mutex);
  now.text = std::move(newOrigin);
}

std::string logPrefix(std::string_view level, std::string_view thread) {
  const std::string text = logOrigin();
  if (text.empty()) return {};
  return fmt::format("{:<7} {} [{}] {} ", level, tamb::GetCurrentTimeString(), text, thread);
}

std::string logOriginWith(const std::string& context) {
  std::string text = logOrigin();
  if (!text.empty() && !context.empty()) text += "; ";
  return text + context;
}

bool isLogRecord(std::string_view line) {
  const std::string text = logOrigin();
  return !text.empty() && line.size() > widthBeforeOrigin &&
         line.substr(widthBeforeOrigin).starts_with('[' + text);
}

std::string withoutLogPrefix(std::string_view line) {
  std::string level(line.substr(0, line.find(' ')));
  const auto endOfOrigin = line.find("] ", widthBeforeOrigin + logOrigin().size());
  const auto endOfThread =
      line.find(' ', endOfOrigin == std::string_view::npos ? endOfOrigin : endOfOrigin + 2);
  if (endOfThread == std::string_view::npos) return std::string(line);
  return level.append(line.substr(endOfThread));
}

std::string capturedLine(std::string_view text, pid_t process) {
  return logPrefix("Output", std::to_string(process)) + tamb::EscapedText(text);
}

}  // namespace qor::console
