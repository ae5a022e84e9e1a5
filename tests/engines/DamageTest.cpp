#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

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
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

/// Files with parts that cannot be decoded.
class Damage : public EngineTest {
 protected:
  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path(name), std::ios::binary) << bytes;
  }

  std::string bytesOf(const Clip& clip, const std::string& name) const {
    writeClip(clip, path(name));
    return fileBytes(path(name));
  }

  void convert(const std::string& input, const std::string& output, const std::string& onError = "skip") {
    heard_ = std::make_shared<Notifications>();
    run(media({{"input", quoted(path(input))},
               {"output", quoted(path(output))},
               {"settings", R"({"onError": ")" + onError + "\"}"}}));
  }

  std::uint64_t finished(const std::string& key) const {
    const auto notification = heard_->only("Finished");
    return notification ? notification->GetNotificationObject()->GetUint64(key) : 0;
  }

  static constexpr const char* tone = "sine=sample_rate=48000:duration=2";
  static constexpr const char* picture = "testsrc2=size=64x48:rate=25:duration=2,format=yuv420p";
};

struct Kind {
  std::string name;
  Clip clip;
};

class DamageOfBits : public Damage, public testing::WithParamInterface<Kind> {};

TEST_P(DamageOfBits, LeavesWhatTheFfmpegProgramDecodes) {
  const auto whole = bytesOf(GetParam().clip, GetParam().name);
  std::mt19937 random(20'117);
  const std::string damaged = "damaged-" + GetParam().name;
  for (int trial = 0; trial < 17; ++trial) {
    auto bytes = whole;
    for (int flips = 1 << (trial % 6); flips > 0; --flips) {
      auto& byte = bytes[random() % bytes.size()];
      byte = static_cast<char>(static_cast<unsigned char>(byte) ^ (1U << random() % 8));
    }
    write(damaged, bytes);
    const auto expected = ffmpegFrames(path(damaged));
    convert(damaged, "out.mkv");
    if (expected.video + expected.audio > 0) {
      EXPECT_TRUE(heard_->only("Finished")) << "trial " << trial << ": " << failure();
      EXPECT_EQ(finished("videoFrames"), expected.video) << "trial " << trial;
      if (heard_->ofLine("FormatChanged").empty()) {  // The program counts after its conversion.
        EXPECT_EQ(finished("audioFrames"), expected.audio) << "trial " << trial;
      }
    }
    // The program rejects some of the files in which only one stream can be decoded.
    EXPECT_EQ(heard_->only("Finished") != nullptr, std::filesystem::exists(path("out.mkv")));
    if (std::filesystem::exists(path("out.mkv"))) {
      EXPECT_NO_THROW(readBack(path("out.mkv"))) << "trial " << trial;
    }
    std::filesystem::remove(path("out.mkv"));
  }
}

constexpr const char* shortTone = "sine=sample_rate=48000:duration=1";
constexpr const char* shortPicture = "testsrc2=size=64x48:rate=25:duration=1,format=yuv420p";

Clip bothOf(const std::string& videoCodec, const std::string& audioCodec) {
  return {.video = shortPicture, .videoCodec = videoCodec, .audio = shortTone, .audioCodec = audioCodec};
}

INSTANTIATE_TEST_SUITE_P(
    Each, DamageOfBits,
    testing::Values(Kind{"in.ts", bothOf("libx264", "aac")}, Kind{"two.ts", bothOf("mpeg2video", "mp2")},
                    Kind{"in.mp4", bothOf("libx264", "aac")}, Kind{"in.mov", bothOf("mpeg4", "pcm_s16le")},
                    Kind{"in.mkv", bothOf("mpeg4", "flac")}, Kind{"in.avi", bothOf("mpeg4", "libmp3lame")},
                    Kind{"in.nut", bothOf("ffv1", "pcm_s16le")}, Kind{"in.mpg", bothOf("mpeg1video", "mp2")},
                    Kind{"in.mp3", {.audio = shortTone, .audioCodec = "libmp3lame"}},
                    Kind{"in.flac", {.audio = shortTone, .audioCodec = "flac"}},
                    Kind{"in.ogg", {.audio = shortTone, .audioCodec = "libvorbis"}},
                    Kind{"in.aac", {.audio = shortTone, .audioCodec = "aac"}}),
    [](const auto& kind) {
      auto name = kind.param.name;
      name[name.find('.')] = '_';
      return name;
    });

TEST_F(Damage, ATruncatedFlacIsDecodedUpToItsEnd) {
  const auto whole = bytesOf({.audio = tone, .audioCodec = "flac"}, "whole.flac");
  for (const std::size_t percent : {40U, 60U, 80U, 99U}) {
    write("cut.flac", whole.substr(0, whole.size() * percent / 100));
    convert("cut.flac", "out.wav");
    ASSERT_TRUE(heard_->only("Finished")) << percent << failure();
    ffmpegConvert(path("cut.flac"), path("expected.wav"));
    const auto expected = readBack(path("expected.wav")).samples;
    ASSERT_THAT(expected, Not(IsEmpty()));
    EXPECT_EQ(readBack(path("out.wav")).samples, expected) << percent;
  }
}

TEST_F(Damage, AfterTheEndOfAnMp3IsSkipped) {
  auto bytes = bytesOf({.audio = tone, .audioCodec = "libmp3lame"}, "whole.mp3");
  std::mt19937 random(3);
  for (int count = 0; count < 3'000; ++count) bytes += static_cast<char>(random());
  write("junk.mp3", bytes);
  convert("junk.mp3", "out.wav");
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_NEAR(readBack(path("out.wav")).duration, 2, 0.1);
  EXPECT_GE(finished("decodeErrors"), 1U);
  const auto errors = heard_->ofLine("DecodeError");
  ASSERT_THAT(errors, Not(IsEmpty()));
  EXPECT_NEAR(static_cast<double>(errors.front()->GetTime().GetTimeNumber()), 2'000, 100);
  EXPECT_EQ(errors.front()->GetNotificationObject()->GetInt64("stream"), 0);
  EXPECT_THAT(errors.front()->GetNotificationObject()->GetUTF8String("reason"),
              AllOf(HasSubstr("Invalid data"), Not(HasSubstr("\n"))));
}

TEST_F(Damage, ATransportStreamMayBeginAnywhere) {
  // The encoder of H.264 puts key frames at 0 and 10 s.
  for (const auto* codec : {"libx264", "mpeg2video"}) {
    const auto whole = bytesOf({.video = "testsrc2=size=64x48:rate=25:duration=12,format=yuv420p",
                                .videoCodec = codec,
                                .audio = "sine=sample_rate=48000:duration=12",
                                .audioCodec = "mp2"},
                               "whole.ts");
    for (const std::size_t percent : {3U, 10U, 30U, 35U}) {
      write("cut.ts", whole.substr(whole.size() * percent / 100 / 188 * 188));
      const auto expected = ffmpegFrames(path("cut.ts"));
      ASSERT_GT(expected.video, 40U) << codec << percent;
      ASSERT_GT(expected.audio, 200U) << codec << percent;
      convert("cut.ts", "out.mkv");
      ASSERT_TRUE(heard_->only("Finished")) << codec << percent << failure();
      EXPECT_EQ(finished("videoFrames"), expected.video) << codec << percent;
      EXPECT_EQ(finished("audioFrames"), expected.audio) << codec << percent;
    }
  }
}

TEST_F(Damage, PicturesAheadOfTheFirstKeyFrameAreCounted) {
  const auto whole = bytesOf({.video = "testsrc2=size=64x48:rate=25:duration=12,format=yuv420p",
                              .videoCodec = "libx264",
                              .audio = "sine=sample_rate=48000:duration=12",
                              .audioCodec = "mp2"},
                             "whole.ts");
  write("cut.ts", whole.substr(whole.size() * 3 / 100 / 188 * 188));
  convert("cut.ts", "out.mkv");
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_EQ(finished("videoFrames"), 50U);
  EXPECT_GT(finished("decodeErrors"), 200U);
}

TEST_F(Damage, FailsTheRunIfThatIsAskedFor) {
  auto bytes = bytesOf({.audio = tone, .audioCodec = "libmp3lame"}, "whole.mp3");
  bytes += std::string(3'000, '\x55');
  write("junk.mp3", bytes);
  convert("junk.mp3", "out.wav", "fail");
  EXPECT_THAT(failure(), AllOf(HasSubstr("Cannot decode stream 0"), HasSubstr("near 2.")));
  EXPECT_FALSE(std::filesystem::exists(path("out.wav")));
}

TEST_F(Damage, OfEverythingFailsTheRun) {
  auto bytes = bytesOf({.video = picture, .videoCodec = "mpeg4"}, "whole.mp4");
  const auto begin = bytes.find("mdat") + 4;
  bytes.replace(begin, bytes.find("moov") - 4 - begin, bytes.find("moov") - 4 - begin, '\0');
  write("zeros.mp4", bytes);
  convert("zeros.mp4", "out.mkv");
  EXPECT_THAT(failure(), AllOf(HasSubstr("can be decoded"), HasSubstr("zeros.mp4")));
  EXPECT_FALSE(std::filesystem::exists(path("out.mkv")));
}

/// Sound, and pictures that consist of zeros only.
std::string withoutPictures(std::string bytes) {
  for (auto at = bytes.find("\xff\xd8\xff"); at != std::string::npos; at = bytes.find("\xff\xd8\xff")) {
    const auto size = bytes.find("\xff\xd9", at) + 2 - at;
    bytes.replace(at, size, size, '\0');
  }
  return bytes;
}

TEST_F(Damage, OfAWholeStreamLeavesTheOther) {
  write("dark.nut",
        withoutPictures(bytesOf({.video = "testsrc2=size=64x48:rate=25:duration=2,format=yuvj420p",
                                 .videoCodec = "mjpeg",
                                 .audio = tone},
                                "whole.nut")));
  convert("dark.nut", "out.mkv");
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_NEAR(readBack(path("out.mkv")).duration, 2, 0.1);
  const auto leftOut = heard_->only("StreamLeftOut");
  ASSERT_TRUE(leftOut);
  EXPECT_EQ(leftOut->GetNotificationObject()->GetInt64("stream"), 0);
  EXPECT_THAT(leftOut->GetNotificationObject()->GetUTF8String("reason"),
              HasSubstr("nothing in it can be decoded"));
  EXPECT_EQ(heard_->lines().front(), "Started");
  EXPECT_EQ(finished("decodeErrors"), 50U);
}

/// A stream that cannot be decoded, beside more packets of the other one than may wait.
class DamageBesideALongStream : public Damage {
 protected:
  /// "dark.nut": 21 000 packets of sound, and pictures that cannot be decoded.
  void writeDark() const {
    writeClip({.video = "testsrc2=size=64x48:rate=5:duration=14,format=yuvj420p",
               .videoCodec = "mjpeg",
               .audio = "sine=sample_rate=48000:duration=14"},
              path("usual.nut"));
    ffmpegConvert(path("usual.nut"), path("short.nut"), "-c:v copy -c:a pcm_s16le -af asetnsamples=n=32");
    write("dark.nut", withoutPictures(fileBytes(path("short.nut"))));
  }
  /// "mute.nut": 41 MB of pictures, and sound that cannot be decoded.
  void writeMute() const {
    auto bytes = bytesOf({.video = "color=size=1280x720:rate=5:duration=6,format=yuv420p",
                          .videoCodec = "rawvideo",
                          .audio = "sine=sample_rate=48000:duration=6",
                          .audioCodec = "flac"},
                         "whole.nut");
    const std::string header = "\xff\xf8\x5a";
    for (auto at = bytes.find(header); at != std::string::npos; at = bytes.find(header, at)) {
      bytes.replace(at, header.size(), header.size(), '\0');
    }
    write("mute.nut", bytes);
  }
  std::int64_t streamLeftOut() const {
    const auto leftOut = heard_->only("StreamLeftOut");
    if (!leftOut) return -1;
    const auto values = leftOut->GetNotificationObject();
    EXPECT_THAT(values->GetUTF8String("reason"), HasSubstr("its beginning cannot be decoded"));
    return values->GetInt64("stream");
  }
};

TEST_F(DamageBesideALongStream, OfPicturesLeavesTheSound) {
  writeDark();
  convert("dark.nut", "out.mkv");
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_EQ(streamLeftOut(), 0);
  EXPECT_THAT(readBack(path("out.mkv")).samples, SizeIs(14 * 48'000));
}

TEST_F(DamageBesideALongStream, OfPicturesThatAreToBeFilteredFailsTheRun) {
  writeDark();
  run(media({{"input", quoted(path("dark.nut"))}, {"videoFilter", R"("hue=s=0")"}}));
  EXPECT_THAT(failure(), AllOf(HasSubstr("stream 0"), HasSubstr("but a filter for it was requested")));
}

TEST_F(DamageBesideALongStream, OfSoundLeavesThePictures) {
  writeMute();
  run(media({{"input", quoted(path("mute.nut"))}}));
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_EQ(streamLeftOut(), 1);
  EXPECT_EQ(finished("videoFrames"), 30U);
}

TEST_F(Damage, OfAWholeStreamFailsTheRunThatIsToFilterIt) {
  write("dark.nut",
        withoutPictures(bytesOf({.video = "testsrc2=size=64x48:rate=25:duration=2,format=yuvj420p",
                                 .videoCodec = "mjpeg",
                                 .audio = tone},
                                "whole.nut")));
  run(media({{"input", quoted(path("dark.nut"))},
             {"output", quoted(path("out.mkv"))},
             {"videoFilter", R"("hue=s=0")"}}));
  EXPECT_THAT(failure(), AllOf(HasSubstr("stream 0"), HasSubstr("but a filter for it was requested")));
  EXPECT_FALSE(std::filesystem::exists(path("out.mkv")));
}

TEST_F(Damage, IsReportedTwentyTimesAndThenOnlyCounted) {
  auto bytes = bytesOf({.audio = "sine=sample_rate=48000:duration=10", .audioCodec = "mp2"}, "whole.mkv");
  // The header of every other frame of 384 bytes.
  int broken = 0;
  for (auto at = bytes.find("\xff\xfd"); at != std::string::npos; at = bytes.find("\xff\xfd", at + 2)) {
    if (++broken % 2 == 0) bytes.replace(at, 2, 2, '\0');
  }
  write("in.mkv", bytes);
  convert("in.mkv", "out.wav");
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_GT(finished("decodeErrors"), 100U);
  EXPECT_THAT(heard_->ofLine("DecodeError"), SizeIs(20));
}

TEST_F(Damage, IsLoggedWithItsCount) {
  auto bytes = bytesOf({.audio = tone, .audioCodec = "libmp3lame"}, "whole.mp3");
  write("junk.mp3", bytes + std::string(3'000, '\x55'));
  convert("junk.mp3", "out.wav");
  EXPECT_THAT(log_.recordsWith("parts could not be decoded and were skipped"), SizeIs(1));
}

}  // namespace
}  // namespace qor::engines::test
