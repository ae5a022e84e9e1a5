#include "programs/host/Display.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iostream>
#include <nlohmann/json.hpp>

#include "programs/support/ErrorStream.h"

namespace qor::programs {

namespace {

using nlohmann::json;
using tamb::TambType;

constexpr int barWidth = 40;
/// How long one that is being shown is waited for: its reader may stand still.
constexpr std::chrono::milliseconds timeForNotification{100};

/// The values by key. A number that JSON does not have, such as the loudness of nothing, becomes a null.
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
  return line;
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
  const std::lock_guard lock(mutex_);
  switch (style_) {
    case Style::Json:
      std::cout << jsonOf(*notification).dump(-1, ' ', false, json::error_handler_t::replace) << std::endl;
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
  if (notification.GetNotificationLine() == "Loudness") {
    loudness_ = values.value("momentary", 0.0);
    hasLoudness_ = true;
    return;
  }
  if (notification.GetNotificationLine() != "Progress") {
    endBar();
    std::cout << lineOf(notification) << std::endl;
    return;
  }
  const double percentage = std::clamp(values.value("percentage", 0.0), 0.0, 100.0);
  const auto filled = static_cast<int>(std::lround(percentage / 100 * barWidth));
  std::cout << '\r'
            << fmt::format("[{:<{}}] {:3.0f} %  {:.1f} s  {:.1f}x",
                           std::string(static_cast<std::size_t>(filled), '#'), barWidth, percentage,
                           values.value("position", 0.0), values.value("speed", 0.0));
  if (hasLoudness_) std::cout << fmt::format("  {:.1f} LUFS", loudness_);
  std::cout << "   " << std::flush;
  barShows_ = true;
}

void Display::endBar() {
  if (barShows_) std::cout << std::endl;
  barShows_ = false;
}

void Display::say(const std::string& text) {
  const std::unique_lock lock(mutex_, timeForNotification);
  if (lock) endBar();
  writeErrorLine(text);
}

bool Display::allWasWritten() const { return static_cast<bool>(std::cout); }

}  // namespace qor::programs
