#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <string>
#include <thread>

#include "tamb/LogContext.h"

namespace {

using testing::AllOf;
using testing::Ge;
using testing::Le;
using testing::MatchesRegex;

void defineContext(const std::string& name, unsigned int engineId) {
  tamb::DefineContextEngine_deprecated(name, engineId, nullptr, {}, {}, {}, {}, {});
}

TEST(LogContext, IsEmptyUntilTheThreadHasSetIt) {
  std::string text = "unset";
  std::jthread([&] { text = tamb::GetCurrentContextString(); }).join();
  EXPECT_EQ(text, "");
}

TEST(LogContext, NamesTheEngineThatTheThreadSaidLast) {
  std::string first;
  std::string second;
  std::jthread([&] {
    defineContext("mixer", 7);
    first = tamb::GetCurrentContextString();
    defineContext("analyser", 4'000'000'000U);
    second = tamb::GetCurrentContextString();
  }).join();
  EXPECT_EQ(first, "mixer (engine 7)");
  EXPECT_EQ(second, "analyser (engine 4000000000)");
}

TEST(LogContext, BelongsToOneThread) {
  std::jthread([] {
    defineContext("mixer", 7);
    std::string other = "unset";
    std::jthread([&] {
      other = tamb::GetCurrentContextString();
      defineContext("analyser", 8);
    }).join();
    EXPECT_EQ(other, "");
    EXPECT_EQ(tamb::GetCurrentContextString(), "mixer (engine 7)");
  }).join();
}

TEST(ThreadId, IsTheKernelsNumberOfTheThread) {
  EXPECT_EQ(tamb::GetThreadId(), std::to_string(getpid()));  // The main thread's id is the process id.
  std::string other;
  std::string expected;
  std::jthread([&] {
    other = tamb::GetThreadId();
    expected = std::to_string(gettid());
  }).join();
  EXPECT_EQ(other, expected);
  EXPECT_NE(other, tamb::GetThreadId());
}

TEST(CurrentTimeString, IsTheUniversalTimeToTheMicrosecond) {
  using std::chrono::microseconds;
  using std::chrono::system_clock;
  const auto before = std::chrono::floor<microseconds>(system_clock::now());
  const auto text = tamb::GetCurrentTimeString();
  const auto after = system_clock::now();
  ASSERT_THAT(text, MatchesRegex("[0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9][0-9]:[0-9][0-9]:[0-9][0-9]"
                                 "[.][0-9][0-9][0-9][0-9][0-9][0-9]Z"));
  std::tm fields{};
  ASSERT_NE(strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &fields), nullptr);
  const auto told = system_clock::from_time_t(timegm(&fields)) + microseconds(std::stoi(text.substr(20, 6)));
  EXPECT_THAT(told, AllOf(Ge(before), Le(after)));
}

}  // namespace
