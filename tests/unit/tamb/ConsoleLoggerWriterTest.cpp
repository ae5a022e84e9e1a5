#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "runtime/tamb/ConsoleLoggerWriter.h"
#include "tests/unit/tamb/Threads.h"

namespace {

using tamb::ConsoleLoggerWriter;
using tamb::LogLevel;
using tamb::test::startThreads;
using testing::AnyOf;
using testing::Eq;

constexpr auto time = "2026-03-01T12:34:56.789012Z";

class ConsoleWriter : public testing::Test {
 protected:
  std::string written(LogLevel level, const std::string& message, const std::string& context = "",
                      const std::string& source = "", const std::string& line = "") {
    stream_.str("");
    ConsoleLoggerWriter(stream_).Write(level, message, context, source, line, "", "4711", time);
    return stream_.str();
  }

  std::ostringstream stream_;
};

TEST_F(ConsoleWriter, WritesOneLineWithEverythingThatIsKnown) {
  EXPECT_EQ(written(LogLevel::Warning, "disk almost full", "mixer (engine 7)", "src/Disk", "42"),
            "Warning 2026-03-01T12:34:56.789012Z [mixer (engine 7)] 4711 disk almost full (src/Disk:42)\n");
}

TEST_F(ConsoleWriter, LeavesOutUnknownParts) {
  EXPECT_EQ(written(LogLevel::Error, "disk full"), "Error   2026-03-01T12:34:56.789012Z 4711 disk full\n");
}

TEST_F(ConsoleWriter, IndentsTheFurtherLinesOfAMessage) {
  EXPECT_EQ(written(LogLevel::Info, "one\ntwo\r\nthree\n\n", "", "src/Disk", "42"),
            "Info    2026-03-01T12:34:56.789012Z 4711 one\n    two\n    three (src/Disk:42)\n");
}

TEST_F(ConsoleWriter, LeavesNoLineOfAContextUnindented) {
  EXPECT_EQ(written(LogLevel::Debug, "message", "a\nb"),
            "Debug   2026-03-01T12:34:56.789012Z [a\n    b] 4711 message\n");
}

TEST_F(ConsoleWriter, SpellsControlCharactersOut) {
  EXPECT_EQ(written(LogLevel::Info, std::string("\x1b[31m\0\ttab \r\x7f \xc3\xbc", 16)),
            "Info    2026-03-01T12:34:56.789012Z 4711 \\x1b[31m\\x00\ttab \\r\\x7f \xc3\xbc\n");
}

TEST_F(ConsoleWriter, EscapesControlCharactersBeyondAscii) {
  // A control sequence introducer in one character, a character that changes the text direction, a byte of
  // another encoding.
  EXPECT_EQ(written(LogLevel::Info, "\u009b2J \u202egnp.exe caf\xe9", "\u009dtitle"),
            "Info    2026-03-01T12:34:56.789012Z [\\u009dtitle] 4711 \\u009b2J \\u202egnp.exe caf\\xe9\n");
}

TEST_F(ConsoleWriter, WritesAnEmptyMessage) {
  EXPECT_EQ(written(LogLevel::Info, ""), "Info    2026-03-01T12:34:56.789012Z 4711 \n");
  EXPECT_EQ(written(LogLevel::Info, "\n"), "Info    2026-03-01T12:34:56.789012Z 4711 \n");
}

TEST_F(ConsoleWriter, WritesToTheStandardErrorStreamByDefault) {
  testing::internal::CaptureStderr();
  ConsoleLoggerWriter().Write(LogLevel::Info, "hello", "", "", "", "", "4711", time);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Info    2026-03-01T12:34:56.789012Z 4711 hello\n");
}

TEST_F(ConsoleWriter, KeepsTheLinesOfSeveralThreadsAndWritersWhole) {
  constexpr int records = 2'000;
  const std::string first(300, 'a');
  const std::string second(300, 'b');
  const auto firstLine = written(LogLevel::Info, first);
  const auto secondLine = written(LogLevel::Info, second);
  stream_.str("");
  startThreads(4, [&](unsigned int thread) {
    ConsoleLoggerWriter writer(stream_);
    for (int i = 0; i < records; ++i) {
      writer.Write(LogLevel::Info, thread % 2 == 0 ? first : second, "", "", "", "", "4711", time);
    }
  });
  std::istringstream lines(stream_.str());
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_THAT(line + '\n', AnyOf(Eq(firstLine), Eq(secondLine)));
  }
  EXPECT_EQ(count, 4 * records);
}

}  // namespace
