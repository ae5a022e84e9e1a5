#include <algorithm>
#include <fstream>
#include <string>

#include "tests/engines/EngineTest.h"
#include "tests/engines/FfmpegProgram.h"

namespace qor::engines::test {
namespace {

using qor::examples::writeClip;
using qor::test::readBack;
using testing::IsEmpty;
using testing::SizeIs;

/// Sound that pauses, in outputs that tell when each packet begins and in those that do not.
class Gaps : public EngineTest {
 protected:
  /// 48 128 samples of 0.5, nothing for 2 s, and 47 872 samples of 0.5: 4 s at 48 kHz.
  std::string sound() const {
    writeClip({.audio = "aevalsrc=0.5:s=48000:d=2:n=1024,asetpts='PTS+if(gte(T,1),2,0)/TB'"},
              path("sound.nut"));
    return path("sound.nut");
  }

  double finished(const std::string& key) const {
    const auto notification = heard_->only("Finished");
    if (!notification) return -1;
    const auto& values = *notification->GetNotificationObject();
    return key == "duration" ? values.GetDouble(key) : static_cast<double>(values.GetUint64(key));
  }
};

class GapsInContainer : public Gaps, public testing::WithParamInterface<std::string> {};

TEST_P(GapsInContainer, AreFilledWithSilenceAndReported) {
  run(media({{"input", quoted(sound())}, {"output", quoted(path(GetParam()))}}));
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  const auto result = readBack(path(GetParam()));
  ASSERT_THAT(result.samples, SizeIs(192'000));
  EXPECT_NEAR(result.samples[48'127], 0.5, 0.001);
  EXPECT_EQ(result.rms(48'128.0 / 48'000, 144'128.0 / 48'000), 0);
  EXPECT_NEAR(result.samples[144'128], 0.5, 0.001);
  EXPECT_NEAR(result.duration, 4, 0.06);
  EXPECT_NEAR(finished("duration"), 4, 1e-9);
  EXPECT_EQ(finished("filledGaps"), 1);
  EXPECT_EQ(finished("audioFrames"), 94);  // The silence was not decoded.
  const auto filled = heard_->only("GapFilled");
  ASSERT_TRUE(filled);
  EXPECT_EQ(filled->GetTime().GetTimeNumber(), 1'003);
  EXPECT_NEAR(filled->GetNotificationObject()->GetDouble("duration"), 2, 1e-9);
  EXPECT_FALSE(filled->IsAnError());
}

INSTANTIATE_TEST_SUITE_P(Each, GapsInContainer,
                         testing::Values("out.wav", "out.avi", "out.au", "out.w64", "out.caf"));

TEST_F(Gaps, OfPcmAreFilledInQuickTimeFiles) {
  run(media({{"input", quoted(sound())},
             {"output", quoted(path("out.mov"))},
             {"settings", R"({"audioCodec": "pcm_s16le"})"}}));
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_THAT(readBack(path("out.mov")).samples, SizeIs(192'000));
}

TEST_F(Gaps, StayWhereTheContainerHoldsThem) {
  for (const auto* name : {"out.mkv", "out.nut", "out.mp4"}) {
    heard_ = std::make_shared<Notifications>();
    run(media({{"input", quoted(sound())}, {"output", quoted(path(name))}}));
    ASSERT_TRUE(heard_->only("Finished")) << failure();
    EXPECT_THAT(heard_->ofLine("GapFilled"), IsEmpty());
    EXPECT_EQ(finished("filledGaps"), 0);
    const auto result = readBack(path(name));
    EXPECT_NEAR(result.duration, 4, 0.05) << name;
    EXPECT_LT(result.samples.size(), 110'000U) << name;
  }
}

TEST_F(Gaps, StayWithoutAnOutput) {
  run(media({{"input", quoted(sound())}}));
  EXPECT_EQ(finished("filledGaps"), 0) << failure();
  EXPECT_NEAR(finished("duration"), 4, 1e-9);
}

TEST_F(Gaps, AtTheBeginningAreFilled) {
  writeClip({.video = "testsrc2=size=64x48:rate=25:duration=2,format=yuv420p",
             .audio = "aevalsrc=0.5:s=48000:d=1.5:n=1000,asetpts=PTS+0.5/TB"},
            path("in.nut"));
  for (const auto* name : {"out.avi", "out.wav"}) {
    heard_ = std::make_shared<Notifications>();
    run(media({{"input", quoted(path("in.nut"))}, {"output", quoted(path(name))}}));
    const auto result = readBack(path(name));
    ASSERT_THAT(result.samples, SizeIs(96'000)) << name << failure();
    EXPECT_NEAR(result.samples[23'999], 0, 0.001);
    EXPECT_NEAR(result.samples[24'000], 0.5, 0.001);
    EXPECT_THAT(heard_->ofLine("GapFilled"), SizeIs(1));
  }
}

TEST_F(Gaps, TakeCommandsAtTheSample) {
  make(media({{"input", quoted(sound())},
              {"output", quoted(path("out.wav"))},
              {"audioFilter", R"("dcshift=0.25,volume=1")"}}));
  filterCommand(at(96'001, 48'000), "volume", "volume", "0");
  engine().Run();
  const auto result = readBack(path("out.wav"));
  ASSERT_THAT(result.samples, SizeIs(192'000)) << failure();
  EXPECT_NEAR(result.samples[96'000], 0.25, 0.001);
  EXPECT_NEAR(result.samples[96'001], 0, 0.001);
}

TEST_F(Gaps, ThatAreFilledEndWithAStop) {
  // A day of silence would be 16 GB.
  writeClip({.audio = "aevalsrc=0.5:s=48000:d=2:n=1024,asetpts='PTS+if(gte(T,1),82800,0)/TB'"},
            path("in.nut"));
  make(media({{"input", quoted(path("in.nut"))}, {"output", quoted(path("out.wav"))}}));
  command("Stop", at(3, 1));
  engine().Run();
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_THAT(readBack(path("out.wav")).samples, SizeIs(144'000));
}

/// A cluster of matroska whose time is damaged.
class GapsOfDamagedTimes : public Gaps {
 protected:
  /// 14 s of sound in clusters of 5 s, of which the second one claims to begin 17 min later.
  std::string damaged() const {
    writeClip({.audio = "sine=sample_rate=48000:duration=14"}, path("whole.mkv"));
    // Later times take three bytes, whatever they are.
    qor::test::ffmpegConvert(path("whole.mkv"), path("late.mkv"), "-c copy -output_ts_offset 70");
    auto bytes = qor::test::fileBytes(path("late.mkv"));
    const std::string cluster = "\x1f\x43\xb6\x75";
    const auto second = bytes.find(cluster, bytes.find(cluster) + 1);
    const auto time = bytes.find(std::string("\xe7\x83\x01"), second);
    EXPECT_LT(time, second + 24);
    bytes.at(time + 2) = '\x11';
    std::ofstream(path("damaged.mkv"), std::ios::binary) << bytes;
    return path("damaged.mkv");
  }
};

TEST_F(GapsOfDamagedTimes, AreNotFilled) {
  run(media({{"input", quoted(damaged())}, {"output", quoted(path("out.wav"))}}));
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_NEAR(readBack(path("out.wav")).duration, 14, 0.1);
  EXPECT_EQ(finished("timeJumps"), 1);
  EXPECT_EQ(finished("filledGaps"), 0);
  const auto jump = heard_->only("TimeJump");
  ASSERT_TRUE(jump);
  EXPECT_NEAR(static_cast<double>(jump->GetTime().GetTimeNumber()), 5'000, 100);
  EXPECT_NEAR(jump->GetNotificationObject()->GetDouble("by"), 1'048.576, 0.1);
}

TEST_F(GapsOfDamagedTimes, FailTheRunIfThatIsAskedFor) {
  run(media({{"input", quoted(damaged())},
             {"output", quoted(path("out.wav"))},
             {"settings", R"({"onError": "fail"})"}}));
  EXPECT_THAT(failure(), testing::HasSubstr("its time jumps from 4.99"));
}

TEST_F(Gaps, OfAMinuteAreFilledWhateverFollows) {
  for (const int seconds : {1, 15}) {
    const auto length = std::to_string(seconds + 1);
    writeClip({.audio = "aevalsrc=0.5:s=8000:n=1000:d=" + length + ",asetpts='PTS+if(gte(T,1),60,0)/TB'"},
              path("in.nut"));
    heard_ = std::make_shared<Notifications>();
    run(media({{"input", quoted(path("in.nut"))}, {"output", quoted(path("out.wav"))}}));
    ASSERT_TRUE(heard_->only("Finished")) << failure();
    EXPECT_THAT(readBack(path("out.wav")).samples, SizeIs((61 + seconds) * 8'000));
    EXPECT_EQ(finished("filledGaps"), 1);
    EXPECT_EQ(finished("timeJumps"), 0);
  }
}

}  // namespace
}  // namespace qor::engines::test
