#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "programs/host/Display.h"
#include "runtime/console/ErrorStream.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tamb/IParametersCollection.h"

namespace qor::programs {
namespace {

using testing::HasSubstr;

/// Control sequences: erase the screen, set the title, ring, go to another line; two of them in one
/// character.
const std::string hostile = "\x1b[2J\x1b]0;x\a\n\r\u009b2J\u0085\x7f\u202e";

std::shared_ptr<const tamb::INotificationMessage> notification(
    const std::string& line, const std::function<void(tamb::IParametersCollectionPrototype&)>& addValues) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  addValues(*prototype);
  return std::make_shared<tamb::NotificationMessage>(
      tamb::NotificationFields{.stepId = hostile,
                               .notificationLine = line,
                               .notificationObject = tamb::CreateParametersCollectionInstance(prototype),
                               .workflowManagerId = hostile});
}

/// The standard output.
template <class... Notifications>
std::string shown(Display::Style style, const Notifications&... notifications) {
  testing::internal::CaptureStdout();
  Display display(style);
  (display.OnNotification(notifications), ...);
  return testing::internal::GetCapturedStdout();
}

/// Whether it contains only text and one line end.
bool isOnePlainLine(std::string text) {
  if (text.empty() || text.back() != '\n') return false;
  text.pop_back();
  for (const std::string control : {"\x1b", "\a", "\n", "\r", "\x7f", "\u009b", "\u0085", "\u202e"}) {
    if (text.find(control) != std::string::npos) return false;
  }
  return true;
}

const auto hostileNotification = notification(
    "Tick" + hostile, [](auto& values) { values.AddUTF8StringKey("key" + hostile, "value" + hostile, ""); });

TEST(ANotification, DoesNotControlTheTerminal) {
  for (const auto style : {Display::Style::Lines, Display::Style::Bar, Display::Style::Json}) {
    const std::string text = shown(style, hostileNotification);
    EXPECT_PRED1(isOnePlainLine, text);
    EXPECT_THAT(text, HasSubstr("\\u009b2J"));
  }
  EXPECT_THAT(shown(Display::Style::Lines, hostileNotification), HasSubstr(R"(Tick\x1b[2J\x1b]0;x\x07\n\r)"));
}

TEST(ANotification, IsTheSameInJsonHoweverItIsSpelt) {
  const auto read = nlohmann::json::parse(shown(Display::Style::Json, hostileNotification));
  EXPECT_EQ(read["line"], "Tick" + hostile);
  EXPECT_EQ(read["values"]["key" + hostile], "value" + hostile);
  EXPECT_EQ(read["workflowManagerId"], hostile);
}

TEST(ANotification, MayHoldValuesOfAnyTypeInAnyPlace) {
  const auto progress = notification("Progress", [](auto& values) {
    values.AddUTF8StringKey("percentage", "many", "");
    values.AddBoolKey("position", true, "");
  });
  const auto notANumber = notification("Progress", [](auto& values) {
    values.AddDoubleKey("percentage", std::numeric_limits<double>::quiet_NaN(), "");
    values.AddDoubleKey("position", std::numeric_limits<double>::infinity(), "");
  });
  const auto loudness =
      notification("Loudness", [](auto& values) { values.AddUTF8StringKey("momentary", "loud", ""); });
  EXPECT_THAT(shown(Display::Style::Bar, progress), HasSubstr("0 %"));
  EXPECT_THAT(shown(Display::Style::Bar, loudness, notANumber), HasSubstr("0 %"));
}

TEST(WhatIsSaid, DoesNotControlTheTerminal) {
  testing::internal::CaptureStderr();
  // Like a display, whose timed mutex clang 14's ThreadSanitizer does not recognise as locked.
  console::writeErrorLine("tamb-host: cannot read \"" + hostile + "caf\xe9\"");
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_PRED1(isOnePlainLine, text);
  EXPECT_THAT(text, HasSubstr("caf\\xe9"));
}

}  // namespace
}  // namespace qor::programs
