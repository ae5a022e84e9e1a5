#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "runtime/tamb/RepeatCountingWriter.h"
#include "tests/unit/tamb/Threads.h"

namespace {

using std::chrono::seconds;
using tamb::LogLevel;
using tamb::RepeatCountingWriter;
using testing::ElementsAre;
using testing::IsEmpty;

/// Records "message @time".
class KeptRecords : public tamb::ILoggerWriter {
 public:
  void Write(LogLevel /*level*/, const std::string& message, const std::string& /*context*/,
             const std::string& /*source*/, const std::string& /*line*/, const std::string& /*function*/,
             const std::string& /*threadId*/, const std::string& time) override {
    lines.push_back(message + " @" + time);
  }

  std::vector<std::string> lines;
};

class ARepeatCountingWriter : public testing::Test {
 protected:
  void write(const std::string& message, LogLevel level = LogLevel::Error, const std::string& line = "1") {
    writer_.Write(level, message, "", "src/TcpEngineFrontEnd", line, "", "4711",
                  std::to_string(now_.time_since_epoch() / seconds(1)));
  }
  void pass(seconds time) { now_ += time; }
  std::vector<std::string> written() { return std::exchange(backlog_->lines, {}); }

  const std::shared_ptr<KeptRecords> backlog_ = std::make_shared<KeptRecords>();
  RepeatCountingWriter::Clock::time_point now_{};
  RepeatCountingWriter writer_{backlog_, [this] { return now_; }};
};

TEST_F(ARepeatCountingWriter, WritesARecordOnceAndThenHowOftenItCame) {
  for (int beat = 0; beat < 60; ++beat) {
    write("no heartbeat");
    pass(seconds(1));
  }
  EXPECT_THAT(written(), ElementsAre("no heartbeat @0"));
  write("no heartbeat");
  EXPECT_THAT(written(), ElementsAre("no heartbeat (repeated 60 times) @60"));
  for (int beat = 0; beat < 3; ++beat) write("no heartbeat");
  writer_.flush();
  EXPECT_THAT(written(), ElementsAre("no heartbeat (repeated 3 times) @60"));
  writer_.flush();
  EXPECT_THAT(written(), IsEmpty());
}

TEST_F(ARepeatCountingWriter, ForwardsOtherRecordsBetweenThem) {
  write("no heartbeat");
  write("no reply");
  write("no heartbeat");
  write("no reply");
  EXPECT_THAT(written(), ElementsAre("no heartbeat @0", "no reply @0"));
  writer_.flush();
  EXPECT_THAT(written(), ElementsAre("no heartbeat (repeated once) @0", "no reply (repeated once) @0"));
}

TEST_F(ARepeatCountingWriter, DistinguishesRecordsOfDifferentPlacesAndLevels) {
  write("the same");
  write("the same", LogLevel::Error, "2");
  write("the same", LogLevel::Warning);
  EXPECT_THAT(written(), ElementsAre("the same @0", "the same @0", "the same @0"));
}

TEST_F(ARepeatCountingWriter, WritesARecordAnewThatCameLongAgo) {
  write("no heartbeat");
  pass(seconds(1));
  write("no heartbeat");
  pass(seconds(30));
  write("no heartbeat");
  EXPECT_THAT(written(),
              ElementsAre("no heartbeat @0", "no heartbeat (repeated once) @1", "no heartbeat @31"));
}

TEST_F(ARepeatCountingWriter, WritesTheCountOfARecordThatCeasedWithTheNextOne) {
  write("no heartbeat");
  write("no heartbeat");
  pass(seconds(30));
  write("connected", LogLevel::Info);
  EXPECT_THAT(written(), ElementsAre("no heartbeat @0", "no heartbeat (repeated once) @0", "connected @30"));
}

TEST_F(ARepeatCountingWriter, WritesEachRecordThatIsNotAFailure) {
  for (const auto level : {LogLevel::Info, LogLevel::Debug}) {
    write("a", level);
    write("a", level);
  }
  EXPECT_EQ(written().size(), 4U);
}

TEST_F(ARepeatCountingWriter, RemembersABoundedNumberOfRecordsOfBoundedLength) {
  const std::string large(8 * 1024 + 1, 'x');
  write(large);
  write(large);
  EXPECT_EQ(written().size(), 2U);
  for (int i = 0; i < 17; ++i) write(std::to_string(i));
  write("16");
  EXPECT_EQ(written().size(), 17U);
  write("0");
  EXPECT_THAT(written(), ElementsAre("0 @0"));
}

TEST_F(ARepeatCountingWriter, WritesTheCountOfARecordThatMakesPlace) {
  write("first");
  write("first");
  for (int i = 0; i < 16; ++i) write(std::to_string(i));
  EXPECT_THAT(written(), testing::Contains("first (repeated once) @0"));
}

TEST_F(ARepeatCountingWriter, CountsWhatSeveralThreadsWrite) {
  tamb::test::startThreads(4, [this](unsigned int /*thread*/) {
    for (int i = 0; i < 1'000; ++i) write("the same");
  });
  writer_.flush();
  EXPECT_THAT(written(), ElementsAre("the same @0", "the same (repeated 3999 times) @0"));
}

}  // namespace
