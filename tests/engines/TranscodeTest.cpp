#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tamb/TAMBRuntimeError.h"
#include "tests/engines/EngineTest.h"

namespace qor::engines::test {
namespace {

using qor::examples::writeClip;
using qor::test::fileBytes;
using qor::test::readBack;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

/// The outputs and notifications of a run of the media engine.
class Transcode : public EngineTest {
 protected:
  /// Runs the shared clip into a file of that name.
  std::string transcode(const std::string& name, std::vector<std::pair<std::string, std::string>> keys = {}) {
    keys.emplace_back("input", quoted(sharedClip()));
    keys.emplace_back("output", quoted(path(name)));
    run(media(keys));
    EXPECT_EQ(engine().GetStatus(), tamb::EngineStatus::Stopped) << engine().GetLastErrorMessage();
    return path(name);
  }
};

TEST_F(Transcode, GivesBothStreamsWithTheirDurationWithoutLoss) {
  const auto result = readBack(transcode("out.mkv"));
  const auto source = readBack(sharedClip());
  EXPECT_EQ(result.videoCodec, "ffv1");
  EXPECT_EQ(result.audioCodec, "pcm_s16le");
  EXPECT_EQ(result.width, 64);
  EXPECT_EQ(result.height, 48);
  EXPECT_EQ(result.sampleRate, 48'000);
  EXPECT_EQ(result.channels, 2);
  EXPECT_NEAR(result.duration, 2.0, 0.05);
  EXPECT_EQ(result.title, "A clip");
  EXPECT_THAT(result.pictures, SizeIs(50));
  EXPECT_EQ(result.samples, source.samples);
  EXPECT_EQ(result.pictures.at(31).luma, source.pictures.at(31).luma);
}

struct Container {
  std::string name;
  std::string format;
  std::string video;
  std::string audio;
};

class TranscodeContainer : public Transcode, public testing::WithParamInterface<Container> {};

TEST_P(TranscodeContainer, TakesItsUsualCodecs) {
  const auto result = readBack(transcode(GetParam().name));
  EXPECT_THAT(result.container, HasSubstr(GetParam().format));
  EXPECT_EQ(result.videoCodec, GetParam().video);
  EXPECT_EQ(result.audioCodec, GetParam().audio);
  EXPECT_NEAR(result.duration, 2.0, 0.1);
}

INSTANTIATE_TEST_SUITE_P(Each, TranscodeContainer,
                         testing::Values(Container{"out.mp4", "mp4", "mpeg4", "aac"},
                                         Container{"out.mov", "mov", "mpeg4", "aac"},
                                         Container{"out.avi", "avi", "mpeg4", "pcm_s16le"},
                                         Container{"out.mkv", "matroska", "ffv1", "pcm_s16le"},
                                         Container{"out.nut", "nut", "ffv1", "pcm_s16le"},
                                         Container{"out.wav", "wav", "", "pcm_s16le"},
                                         Container{"out.flac", "flac", "", "flac"},
                                         Container{"out.m4a", "mov", "mpeg4", "aac"}));

TEST_F(Transcode, TakesTheCodecsAndTheContainerOfTheSettings) {
  const auto result = readBack(
      transcode("out.anything",
                {{"settings", R"({"container": "matroska", "videoCodec": "mpeg4", "audioCodec": "flac"})"}}));
  EXPECT_THAT(result.container, HasSubstr("matroska"));
  EXPECT_EQ(result.videoCodec, "mpeg4");
  EXPECT_EQ(result.audioCodec, "flac");
}

TEST_F(Transcode, PassesAudioThroughItsFilter) {
  const auto result = readBack(transcode("out.mkv", {{"audioFilter", R"("volume=0.5")"}}));
  const auto source = readBack(sharedClip());
  EXPECT_NEAR(result.rms(0, 2) / source.rms(0, 2), 0.5, 0.001);
}

TEST_F(Transcode, PassesVideoThroughItsFilter) {
  const auto result = readBack(transcode("out.mkv", {{"videoFilter", R"("hue=s=0")"}}));
  EXPECT_GT(readBack(sharedClip()).pictures.front().colour, 50);
  EXPECT_THAT(result.pictures, AllOf(SizeIs(50), Each(testing::Field(&qor::test::PictureMeans::colour, 0))));
}

TEST_F(Transcode, FollowsFiltersThatChangeSizeRateAndTime) {
  const auto result = readBack(transcode(
      "out.mkv", {{"videoFilter", R"("scale=32:24,fps=50")"}, {"audioFilter", R"("aresample=22050")"}}));
  EXPECT_EQ(result.width, 32);
  EXPECT_EQ(result.height, 24);
  EXPECT_THAT(result.pictures, SizeIs(100));
  EXPECT_EQ(result.sampleRate, 22'050);
  EXPECT_NEAR(static_cast<double>(result.samples.size()), 44'100, 100);
}

TEST_F(Transcode, GivesTheSameBytesOnEachRun) {
  for (const auto* name : {"1.mp4", "1.mkv", "1.avi"}) {
    std::vector<std::string> files;
    for (const auto* run : {"a-", "b-"}) {
      const auto file = std::string(run) + name;
      make(media({{"input", quoted(sharedClip())},
                  {"output", quoted(path(file))},
                  {"audioFilter", R"("volume@level=1,aecho")"},
                  {"videoFilter", R"("hue=s=1,scale=48:32")"}}));
      filterCommand(at(1, 2), "volume@level", "volume", "0.3");
      filterCommand(at(17, 25), "hue", "s", "0");
      filterCommand(at(1'234, 1'000), "volume@level", "volume", "0.8");
      engine().Run();
      files.push_back(fileBytes(path(file)));
    }
    EXPECT_EQ(files[0], files[1]) << name;
    EXPECT_FALSE(files[0].empty());
  }
}

TEST_F(Transcode, AnalysesWithoutAnOutput) {
  run(media({{"input", quoted(sharedClip())}, {"videoFilter", R"("hue=s=0")"}}));
  const auto finished = heard_->only("Finished");
  ASSERT_TRUE(finished) << failure();
  const auto& values = *finished->GetNotificationObject();
  EXPECT_EQ(values.GetUint64("videoFrames"), 50U);
  EXPECT_EQ(values.GetUint64("audioFrames"), 94U);  // 96 000 samples in frames of 1 024
  EXPECT_NEAR(values.GetDouble("duration"), 2.0, 1e-9);
  EXPECT_FALSE(values.GetBool("stopped"));
  EXPECT_FALSE(values.HasKey("integrated"));
}

TEST_F(Transcode, NotifiesInOrderWithTheIdsOfTheEngine) {
  transcode("out.mkv");
  EXPECT_THAT(heard_->lines(),
              ElementsAre("Started", "Progress", "Progress", "Progress", "Progress", "Finished"));
  std::vector<std::string> ids;
  for (const auto& each : heard_->all()) {
    EXPECT_EQ(each->GetStepId(), "media");
    EXPECT_EQ(each->GetWorkflowManagerId(), "manager");
    EXPECT_EQ(each->GetEngineId(), 7U);
    EXPECT_EQ(each->GetCommandId(), 0U);
    EXPECT_FALSE(each->IsAnError());
    EXPECT_EQ(each->GetTime().GetEditRate(), tamb::EditRate(1000, 1));
    ids.push_back(each->GetNotificationId());
  }
  std::sort(ids.begin(), ids.end());
  EXPECT_EQ(std::unique(ids.begin(), ids.end()), ids.end());
  const auto progress = heard_->ofLine("Progress");
  for (std::size_t index = 0; index < progress.size(); ++index) {
    const auto& values = *progress[index]->GetNotificationObject();
    EXPECT_NEAR(values.GetDouble("position"), 0.5 * static_cast<double>(index + 1), 0.04);
    EXPECT_NEAR(values.GetDouble("percentage"), 25.0 * static_cast<double>(index + 1), 2);
    EXPECT_GT(values.GetDouble("speed"), 0);
  }
}

TEST_F(Transcode, ReportsTheStreamsAtTheStart) {
  transcode("out.mkv");
  const auto& values = *heard_->only("Started")->GetNotificationObject();
  EXPECT_EQ(values.GetUint64("streams"), 2U);
  EXPECT_EQ(values.GetUTF8String("stream0"), "0: video ffv1 64x48 25/1");
  EXPECT_EQ(values.GetUTF8String("stream1"), "1: audio pcm_s16le 48000 Hz stereo");
  EXPECT_NEAR(values.GetDouble("duration"), 2.0, 0.05);
}

TEST_F(Transcode, KnowsItsTimeAndItsDuration) {
  transcode("out.mkv");
  const auto time = engine().GetCurrentTimeInfo("media");
  EXPECT_EQ(time.position.GetTimeNumber(), 2'000);
  EXPECT_EQ(time.position.GetEditRate(), tamb::EditRate(1'000, 1));
  EXPECT_NEAR(static_cast<double>(time.duration.GetTimeNumber()), 2'000, 50);
  EXPECT_THROW(engine().GetCurrentTimeInfo("nothing"), tamb::TAMBRuntimeError);
}

TEST_F(Transcode, RunsOnceOnly) {
  transcode("out.mkv");
  const auto bytes = fileBytes(path("out.mkv"));
  EXPECT_THROW(engine().Run(), tamb::TAMBRuntimeError);
  EXPECT_EQ(engine().GetStatus(), tamb::EngineStatus::Stopped);
  EXPECT_EQ(fileBytes(path("out.mkv")), bytes);
}

TEST_F(Transcode, WorksWithoutAHub) {
  make(media({{"input", quoted(sharedClip())}, {"output", quoted(path("out.mkv"))}}));
  engine().SetNotificationHubBackEnd(nullptr);
  engine().Run();
  EXPECT_EQ(engine().GetStatus(), tamb::EngineStatus::Stopped);
  EXPECT_THAT(heard_->all(), IsEmpty());
}

TEST_F(Transcode, TakesVideoAlone) {
  writeClip({.video = "testsrc2=size=64x48:rate=30000/1001:duration=1,format=yuv420p"}, path("in.mkv"));
  run(media({{"input", quoted(path("in.mkv"))}, {"output", quoted(path("out.mp4"))}}));
  const auto result = readBack(path("out.mp4"));
  EXPECT_EQ(result.videoCodec, "mpeg4");
  EXPECT_EQ(result.audioCodec, "");
  EXPECT_THAT(result.pictures, SizeIs(30));
  EXPECT_NEAR(result.duration, 30 * 1.001 / 30, 0.001);
}

class TranscodeAudioRate : public Transcode, public testing::WithParamInterface<int> {};

TEST_P(TranscodeAudioRate, TakesAudioAloneOfAnyRate) {
  const auto rate = std::to_string(GetParam());
  writeClip({.audio = "sine=frequency=440:duration=1:sample_rate=" + rate}, path("in.wav"));
  run(media({{"input", quoted(path("in.wav"))}, {"output", quoted(path("out.wav"))}}));
  const auto result = readBack(path("out.wav"));
  EXPECT_EQ(result.sampleRate, GetParam());
  EXPECT_EQ(result.samples, readBack(path("in.wav")).samples);
}

TEST_P(TranscodeAudioRate, EncodesItAtANeighbouringRateThatTheCodecKnows) {
  const auto rate = std::to_string(GetParam());
  writeClip({.audio = "sine=frequency=440:duration=1:sample_rate=" + rate}, path("in.wav"));
  run(media({{"input", quoted(path("in.wav"))}, {"output", quoted(path("out.mp4"))}}));
  const auto result = readBack(path("out.mp4"));
  EXPECT_EQ(result.audioCodec, "aac");
  EXPECT_NEAR(result.duration, 1, 0.2);
}

INSTANTIATE_TEST_SUITE_P(Each, TranscodeAudioRate, testing::Values(8'000, 11'025, 12'345, 44'100, 96'000));

TEST_F(Transcode, ContinuesWithOneStreamWhenTheOtherEndsEarly) {
  writeClip({.video = "testsrc2=size=64x48:rate=25:duration=3,format=yuv420p",
             .audio = "sine=duration=1:sample_rate=48000"},
            path("in.mkv"));
  run(media({{"input", quoted(path("in.mkv"))}, {"output", quoted(path("out.mkv"))}}));
  const auto result = readBack(path("out.mkv"));
  EXPECT_THAT(result.pictures, SizeIs(75));
  EXPECT_THAT(result.samples, SizeIs(48'000));
}

/// More packets than may wait.
class TranscodeLong : public Transcode {
 protected:
  void write(const std::string& audioSeconds) {
    writeClip({.video = "color=size=16x16:rate=1000:duration=23,format=yuv420p",
               .videoCodec = "mpeg4",
               .audio = "sine=sample_rate=8000:duration=" + audioSeconds},
              path("in.nut"));
  }
};

TEST_F(TranscodeLong, LeavesOutAStreamHoweverLong) {
  write("23");
  run(media({{"input", quoted(path("in.nut"))}, {"output", quoted(path("out.wav"))}}));
  EXPECT_THAT(readBack(path("out.wav")).samples, SizeIs(23 * 8'000));
}

TEST_F(TranscodeLong, ContinuesLongAfterTheEndOfOneStream) {
  write("0.5");
  run(media({{"input", quoted(path("in.nut"))}}));
  const auto finished = heard_->only("Finished");
  ASSERT_TRUE(finished) << failure();
  EXPECT_EQ(finished->GetNotificationObject()->GetUint64("videoFrames"), 23'000U);
  EXPECT_EQ(finished->GetNotificationObject()->GetUint64("audioFrames"), 4U);
}

TEST_F(Transcode, KeepsAudioThatBeginsLaterInItsPlace) {
  writeClip({.video = "testsrc2=size=64x48:rate=25:duration=2,format=yuv420p",
             .audio = "aevalsrc=0.5:s=48000:d=1.5,asetpts=PTS+0.5/TB"},
            path("in.mkv"));
  make(media({{"input", quoted(path("in.mkv"))},
              {"output", quoted(path("out.mkv"))},
              {"audioFilter", R"("volume=1")"}}));
  filterCommand(at(1, 1), "volume", "volume", "0");
  engine().Run();
  const auto result = readBack(path("out.mkv"));
  ASSERT_THAT(result.samples, SizeIs(72'000));
  EXPECT_NEAR(result.samples[23'999], 0.5, 0.001);
  EXPECT_NEAR(result.samples[24'000], 0, 0.001);
  EXPECT_NEAR(result.audioStart, 0.5, 0.002);
}

TEST_F(Transcode, ReplacesAFileThatWasThereBefore) {
  writeClip({.audio = "sine=duration=1"}, path("out.mkv"));
  EXPECT_THAT(readBack(transcode("out.mkv")).pictures, SizeIs(50));
  EXPECT_THAT(fileNames(), ElementsAre("out.mkv"));
}

TEST_F(Transcode, WritesThroughASymbolicLink) {
  writeClip({.audio = "sine=duration=1"}, path("real.mkv"));
  std::filesystem::create_symlink(path("real.mkv"), path("link.mkv"));
  transcode("link.mkv");
  EXPECT_TRUE(std::filesystem::is_symlink(path("link.mkv")));
  EXPECT_THAT(readBack(path("real.mkv")).pictures, SizeIs(50));
}

TEST_F(Transcode, AFilterMayEndBeforeTheMedia) {
  run(media({{"input", quoted(sharedClip())},
             {"output", quoted(path("out.mkv"))},
             {"videoFilter", R"("trim=end=1")"},
             {"audioFilter", R"("atrim=end=1")"}}));
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  const auto result = readBack(path("out.mkv"));
  EXPECT_THAT(result.pictures, SizeIs(25));
  EXPECT_THAT(result.samples, SizeIs(48'000));
}

}  // namespace
}  // namespace qor::engines::test
