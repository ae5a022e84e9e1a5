#include <cmath>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/engines/EngineTest.h"
#include "tests/engines/FfmpegProgram.h"
#include "tests/engines/HttpServer.h"

namespace qor::engines::test {
namespace {

using qor::examples::writeClip;
using qor::test::ffmpegConvert;
using qor::test::ffmpegFrames;
using qor::test::fileBytes;
using qor::test::readBack;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr const char* twoSeconds = "testsrc2=size=64x48:rate=25:duration=2,format=yuv420p";
constexpr const char* twoSecondsOfTone = "sine=sample_rate=48000:duration=2";

/// Files with jumps of time stamps.
class TimeJumps : public EngineTest {
 protected:
  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path(name), std::ios::binary) << bytes;
  }

  /// Two seconds in a container whose times may jump.
  std::string part(const std::string& container) const {
    writeClip({.video = twoSeconds,
               .videoCodec = container == "ts" ? "libx264" : "mpeg1video",
               .audio = twoSecondsOfTone,
               .audioCodec = "mp2"},
              path("part." + container));
    return fileBytes(path("part." + container));
  }

  /// The same, but its times begin later.
  std::string partAt(double seconds) const {
    part("ts");
    ffmpegConvert(path("part.ts"), path("shifted.ts"),
                  "-c copy -muxdelay 0 -muxpreload 0 -output_ts_offset " + std::to_string(seconds));
    return fileBytes(path("shifted.ts"));
  }

  void convert(const std::string& input, const std::string& output) {
    run(media({{"input", quoted(path(input))}, {"output", quoted(path(output))}}));
  }

  std::uint64_t finished(const std::string& key) const {
    const auto notification = heard_->only("Finished");
    return notification ? notification->GetNotificationObject()->GetUint64(key) : 0;
  }

  double duration() const {
    const auto notification = heard_->only("Finished");
    return notification ? notification->GetNotificationObject()->GetDouble("duration") : 0;
  }

  /// Checks that the frames, and their durations, are those of the `ffmpeg` program.
  void expectWhatTheProgramDoes(const std::string& input) const {
    const auto expected = ffmpegFrames(path(input));
    EXPECT_EQ(finished("videoFrames"), expected.video);
    EXPECT_EQ(finished("audioFrames"), expected.audio);
    EXPECT_NEAR(duration(), expected.end, 0.1);
  }
};

class JoinedParts : public TimeJumps, public testing::WithParamInterface<std::string> {};

TEST_P(JoinedParts, FollowEachOther) {
  const auto one = part(GetParam());
  const auto joined = "joined." + GetParam();
  write(joined, one + one + one);
  convert(joined, "out.mkv");
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  expectWhatTheProgramDoes(joined);
  EXPECT_NEAR(duration(), 6, 0.2);
  const auto result = readBack(path("out.mkv"));
  EXPECT_THAT(result.pictures, SizeIs(150));
  EXPECT_NEAR(static_cast<double>(result.samples.size()) / 48'000, 6, 0.2);
  EXPECT_EQ(finished("timeJumps"), heard_->ofLine("TimeJump").size());
  EXPECT_GE(finished("timeJumps"), 2U);
  const auto jump = heard_->ofLine("TimeJump").front();
  EXPECT_NEAR(static_cast<double>(jump->GetTime().GetTimeNumber()), 2'000, 100);
  EXPECT_NEAR(jump->GetNotificationObject()->GetDouble("by"), -2, 0.1);
  EXPECT_THAT(log_.recordsWith("the output goes on without a jump"), SizeIs(1));
}

INSTANTIATE_TEST_SUITE_P(Each, JoinedParts, testing::Values("ts", "mpg"));

TEST_F(TimeJumps, OfPartsWithOtherStreamsAreReported) {
  writeClip({.video = "testsrc2=size=64x48:rate=25:duration=9,format=yuv420p",
             .videoCodec = "mpeg2video",
             .audio = "sine=sample_rate=48000:duration=9",
             .audioCodec = "mp2"},
            path("one.ts"));
  ffmpegConvert(path("one.ts"), path("other.ts"), "-c copy -mpegts_start_pid 0x200");
  const auto bytes = fileBytes(path("one.ts")) + fileBytes(path("other.ts"));
  write("in.ts", bytes);
  const HttpServer server(bytes, bytes.size());
  // The last two streams are found at the end of a file when it is opened, or else during the run.
  for (const auto& input : {path("in.ts"), server.url("in.ts")}) {
    heard_ = std::make_shared<Notifications>();
    run(media({{"input", quoted(input)}, {"output", quoted(path("out.mkv"))}}));
    ASSERT_TRUE(heard_->only("Finished")) << failure();
    EXPECT_NEAR(duration(), 9, 0.2);
    std::vector<std::pair<std::int64_t, std::string>> leftOut;
    for (const auto& each : heard_->ofLine("StreamLeftOut")) {
      leftOut.emplace_back(each->GetNotificationObject()->GetInt64("stream"), reasonOf(each));
    }
    EXPECT_THAT(leftOut, UnorderedElementsAre(Pair(2, "the run uses stream 0 as its video"),
                                              Pair(3, "the run uses stream 1 as its audio")))
        << input;
  }
}

TEST_F(TimeJumps, ForwardInATransportStreamLeaveNoGap) {
  write("in.ts", part("ts") + partAt(500));
  convert("in.ts", "out.mkv");
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  expectWhatTheProgramDoes("in.ts");
  EXPECT_NEAR(readBack(path("out.mkv")).duration, 4, 0.2);
  EXPECT_GE(finished("timeJumps"), 1U);
  EXPECT_NEAR(heard_->ofLine("TimeJump").front()->GetNotificationObject()->GetDouble("by"), 498, 1);
}

TEST_F(TimeJumps, BelowTheThresholdStay) {
  write("in.ts", part("ts") + partAt(10));
  convert("in.ts", "out.mkv");
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  expectWhatTheProgramDoes("in.ts");
  EXPECT_NEAR(duration(), 12, 0.2);
  EXPECT_EQ(finished("timeJumps"), 0U);
}

TEST_F(TimeJumps, AtTheWrapOfTheClockAreIgnored) {
  // The clock of transport streams restarts after 26.5 h.
  constexpr double clock = 8'589'934'592.0 / 90'000;
  write("in.ts", partAt(clock - 3) + partAt(clock - 1) + partAt(clock + 1));
  convert("in.ts", "out.mkv");
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  expectWhatTheProgramDoes("in.ts");
  EXPECT_NEAR(duration(), 6, 0.2);
}

TEST_F(TimeJumps, InOtherFormatsStayBelowThirtyHours) {
  writeClip({.video = "testsrc2=size=64x48:rate=25:duration=2,setpts='PTS+if(gte(N,25),500,0)/TB'"},
            path("in.mkv"));
  convert("in.mkv", "out.mkv");
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_NEAR(duration(), 502, 0.1);
  EXPECT_EQ(finished("timeJumps"), 0U);
}

TEST_F(TimeJumps, OfMoreThanThirtyHoursAreDamage) {
  writeClip({.video = "testsrc2=size=64x48:rate=25:duration=2,setpts='PTS+if(gte(N,25),40*3600,0)/TB'"},
            path("in.nut"));
  convert("in.nut", "out.mkv");
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_EQ(finished("videoFrames"), 50U);
  EXPECT_NEAR(duration(), 2, 0.1);
  EXPECT_EQ(finished("timeJumps"), 25U);
  heard_ = std::make_shared<Notifications>();
  run(media({{"input", quoted(path("in.nut"))}, {"settings", R"({"onError": "fail"})"}}));
  EXPECT_THAT(failure(), AllOf(HasSubstr("its time jumps from 1.0"), HasSubstr("to 144001.")));
}

}  // namespace
}  // namespace qor::engines::test
