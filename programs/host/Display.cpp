#include "programs/host/Display.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string_view>

#include "engines/sdk/NotificationNames.h"
#include "runtime/base/Utf8.h"
#include "runtime/console/ErrorStream.h"
#include "runtime/tamb/EscapedText.h"

namespace qor::programs {

namespace {

using nlohmann::json;
namespace names = engines::names;
using tamb::TambType;

constexpr int barWidth = 40;
/// Maximum wait for a notification that is being written: the reader of the output may be paused.
constexpr std::chrono::milliseconds timeForNotification{100};

/// The values by key. Numbers that JSON lacks, such as the loudness of silence (-inf), are printed as null.
json valuesOf(const tamb::INotificationMessage& notification) {
  json values = json::object();
  const auto object = notification.GetNotificationObject();
  if (!object) return values;
  for (const auto& [key, type] : object->GetKeysAndTypes()) {
    if (type == TambType::Bool) values[key] = object->GetBool(key);
    if (type == TambType::Int64) values[key] = object->GetInt64(key);
    if (type == TambType::Uint64) values[key] = object->GetUint64(key);
    if (type == TambType::Double) values[key] = object->GetDouble(key);
    if (type == TambType::UTF8String) values[key] = object->GetUTF8String(key);
  }
  return values;
}

double secondsOf(const tamb::MediaTime& time) {
  const auto rate = time.GetEditRate();
  if (rate.GetNumerator() == 0) return 0;
  return static_cast<double>(time.GetTimeNumber()) * rate.GetDenominator() / rate.GetNumerator();
}

std::string textOf(const json& value) {
  if (value.is_number_float()) return fmt::format("{:.2f}", value.get<double>());
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string lineOf(const tamb::INotificationMessage& notification) {
  std::string line =
      fmt::format("{:9.3f} s  {}", secondsOf(notification.GetTime()), notification.GetNotificationLine());
  if (notification.GetCommandId() != 0) line += fmt::format(" #{}", notification.GetCommandId());
  const json values = valuesOf(notification);
  for (const auto& [key, value] : values.items()) line += " " + key + "=" + textOf(value);
  return tamb::EscapedText(line);
}

/// One line of JSON that is safe to print on a terminal: control characters can occur in strings only, and
/// are escaped as \u00XX.
std::string printed(const json& value) {
  const std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
  std::string line;
  line.reserve(text.size());
  for (std::string_view rest = text; !rest.empty();) {
    const auto character = base::firstCharacter(rest);
    if (tamb::IsControlCharacter(character.codePoint)) {
      line += fmt::format("\\u{:04x}", static_cast<unsigned int>(character.codePoint));
    } else {
      line += rest.substr(0, character.length);
    }
    rest.remove_prefix(character.length);
  }
  return line;
}

/// 0 unless the value is a number: an engine may send anything.
double numberIn(const json& values, const char* key) {
  const auto value = values.find(key);
  return value != values.end() && value->is_number() ? value->get<double>() : 0;
}

json jsonOf(const tamb::INotificationMessage& notification) {
  return {{"line", notification.GetNotificationLine()},
          {"seconds", secondsOf(notification.GetTime())},
          {"step", notification.GetStepId()},
          {"commandId", notification.GetCommandId()},
          {"id", notification.GetNotificationId()},
          {"workflowManagerId", notification.GetWorkflowManagerId()},
          {"engineId", notification.GetEngineId()},
          {"values", valuesOf(notification)}};
}

}  // namespace

void Display::OnNotification(std::shared_ptr<const tamb::INotificationMessage> notification) {
  const base::TimedLock lock(mutex_);
  switch (style_) {
    case Style::Json:
      std::cout << printed(jsonOf(*notification)) << std::endl;
      return;
    case Style::Lines:
      std::cout << lineOf(*notification) << std::endl;
      return;
    case Style::Bar:
      return showBar(*notification);
  }
}

void Display::showBar(const tamb::INotificationMessage& notification) {
  const json values = valuesOf(notification);
  if (notification.GetNotificationLine() == names::loudness) {
    loudness_ = numberIn(values, names::momentary);
    hasLoudness_ = true;
    return;
  }
  if (notification.GetNotificationLine() != names::progress) {
    endBar();
    std::cout << lineOf(notification) << std::endl;
    return;
  }
  const double number = numberIn(values, names::percentage);
  const double percentage = std::isfinite(number) ? std::clamp(number, 0.0, 100.0) : 0;
  const auto filled = static_cast<int>(std::lround(percentage / 100 * barWidth));
  std::cout << '\r'
            << fmt::format("[{:<{}}] {:3.0f} %  {:.1f} s  {:.1f}x",
                           std::string(static_cast<std::size_t>(filled), '#'), barWidth, percentage,
                           numberIn(values, names::position), numberIn(values, names::speed));
  if (hasLoudness_) std::cout << fmt::format("  {:.1f} LUFS", loudness_);
  std::cout << "   " << std::flush;
  barShows_ = true;
}

void Display::endBar() {
  if (barShows_) std::cout << std::endl;
  barShows_ = false;
}

void Display::say(const std::string& text) {
  if (!mutex_.tryLockFor(timeForNotification)) return console::writeErrorLine(text);
  const base::TimedLock lock(mutex_, std::adopt_lock);
  endBar();
  console::writeErrorLine(text);
}

bool Display::allWasWritten() const { return static_cast<bool>(std::cout); }

}  // namespace qor::programs
