#include <fstream>
#include <string>

#include "tests/engines/EngineTest.h"
#include "tests/engines/FfmpegProgram.h"

namespace qor::engines::test {
namespace {

using qor::examples::Clip;
using qor::examples::writeClip;
using qor::test::ffmpegConvert;
using qor::test::ffmpegFrames;
using qor::test::fileBytes;
using qor::test::readBack;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// Streams that change their format, size, rate or channels between two frames.
class FormatChanges : public EngineTest {
 protected:
  std::string bytesOf(const Clip& clip, const std::string& name) const {
    writeClip(clip, path(name));
    return fileBytes(path(name));
  }

  /// Three seconds of 0.5: in mono, in stereo of another rate, in mono again.
  void writeSound() const {
    const auto mono =
        bytesOf({.audio = "aevalsrc=0.5*sin(2000*PI*t):s=48000:d=1", .audioCodec = "mp2"}, "mono.mp2");
    const auto stereo =
        bytesOf({.audio = "aevalsrc=0.5*sin(2000*PI*t)|0.5*sin(2000*PI*t):s=44100:d=1", .audioCodec = "mp2"},
                "stereo.mp2");
    std::ofstream(path("in.mp2"), std::ios::binary) << mono + stereo + mono;
  }

  void convert(const std::string& input, const std::string& output, const std::string& onError) {
    run(media({{"input", quoted(path(input))},
               {"output", quoted(path(output))},
               {"settings", R"({"onError": ")" + onError + "\"}"}}));
  }
};

TEST_F(FormatChanges, OfSoundAreConvertedToTheFirstFormat) {
  writeSound();
  convert("in.mp2", "out.wav", "skip");
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  const auto result = readBack(path("out.wav"));
  ffmpegConvert(path("in.mp2"), path("expected.wav"));
  const auto expected = readBack(path("expected.wav"));
  EXPECT_EQ(result.sampleRate, expected.sampleRate);
  EXPECT_EQ(result.channels, 1);
  EXPECT_NEAR(result.duration, expected.duration, 0.05);
  for (const double from : {0.3, 1.3, 2.4}) EXPECT_NEAR(result.rms(from, from + 0.4), 0.354, 0.01) << from;
  const auto changes = heard_->ofLine("FormatChanged");
  ASSERT_THAT(changes, Not(IsEmpty()));
  const auto& values = *changes.back()->GetNotificationObject();
  EXPECT_THAT(values.GetUTF8String("from"), HasSubstr(" Hz 1 channels s16"));
  EXPECT_EQ(values.GetUTF8String("to").substr(0, 8), "48000 Hz");
  EXPECT_EQ(values.GetInt64("stream"), 0);
}

TEST_F(FormatChanges, OfPicturesAreConvertedToTheFirstSize) {
  const auto small =
      bytesOf({.video = "testsrc2=size=64x48:rate=25:duration=1", .videoCodec = "mpeg2video"}, "a.ts");
  const auto large =
      bytesOf({.video = "testsrc2=size=128x96:rate=25:duration=1", .videoCodec = "mpeg2video"}, "b.ts");
  std::ofstream(path("in.ts"), std::ios::binary) << small << large;
  convert("in.ts", "out.mkv", "skip");
  const auto finished = heard_->only("Finished");
  ASSERT_TRUE(finished) << failure();
  EXPECT_EQ(finished->GetNotificationObject()->GetUint64("videoFrames"), ffmpegFrames(path("in.ts")).video);
  const auto result = readBack(path("out.mkv"));
  EXPECT_EQ(result.width, 64);
  EXPECT_EQ(result.height, 48);
  const auto change = heard_->only("FormatChanged");
  ASSERT_TRUE(change);
  EXPECT_EQ(change->GetNotificationObject()->GetUTF8String("from"), "64x48 yuv420p");
  EXPECT_EQ(change->GetNotificationObject()->GetUTF8String("to"), "128x96 yuv420p");
}

TEST_F(FormatChanges, FailTheRunIfErrorsAreTo) {
  writeSound();
  convert("in.mp2", "out.wav", "fail");
  EXPECT_THAT(failure(), HasSubstr("Cannot filter the stream"));
}

}  // namespace
}  // namespace qor::engines::test
