#include <fstream>
#include <string>

#include "engines/media/FfmpegHandles.h"
#include "tests/engines/EngineTest.h"

namespace qor::engines::test {
namespace {

using qor::examples::writeClip;
using qor::test::fileBytes;
using testing::HasSubstr;

/// A number in the encoding of FLAC and PNG.
std::string inFourBytes(std::size_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift & 0xFFU);
  return bytes;
}

/// The bytes of a PNG with one grey pixel.
std::string onePoint() {
  using namespace std::string_literals;
  return "\x89PNG\r\n\x1a\n"s + "\0\0\0\x0dIHDR\0\0\0\x01\0\0\0\x01\x08\0\0\0\0\x3a\x7e\x9b\x55"s +
         "\0\0\0\x0aIDAT\x78\x9c\x63\x68\0\0\0\x82\0\x81\x77\xcd\x72\xb6"s + "\0\0\0\0IEND\xae\x42\x60\x82"s;
}

/// Album pictures, and outputs that support such pictures but no video.
class Picture : public EngineTest {
 protected:
  /// A FLAC of one second, with a picture.
  std::string album() const {
    writeClip({.audio = "sine=sample_rate=48000:duration=1", .audioCodec = "flac"}, path("plain.flac"));
    const auto plain = fileBytes(path("plain.flac"));
    const auto picture = onePoint();
    const auto zero = inFourBytes(0);
    const auto block = inFourBytes(3) + inFourBytes(9) + "image/png" + zero + inFourBytes(1) +
                       inFourBytes(1) + inFourBytes(8) + zero + inFourBytes(picture.size()) + picture;
    const std::size_t behindTheFirstBlock = 4 + 4 + 34;
    auto bytes = plain.substr(0, behindTheFirstBlock) + '\6' + inFourBytes(block.size()).substr(1) + block +
                 plain.substr(behindTheFirstBlock);
    bytes[4] = 0;  // It is no longer the last block.
    std::ofstream(path("album.flac"), std::ios::binary) << bytes;
    return path("album.flac");
  }

  /// The streams of a file: "audio", "video", or the name of its picture's codec and its bytes.
  std::vector<std::string> streamsOf(const std::string& name) const {
    AVFormatContext* context = nullptr;
    std::vector<std::string> streams;
    if (avformat_open_input(&context, path(name).c_str(), nullptr, nullptr) < 0) return {"nothing"};
    const InputHandle input(context);
    for (unsigned int index = 0; index < input->nb_streams; ++index) {
      const auto& stream = *input->streams[index];
      if ((stream.disposition & AV_DISPOSITION_ATTACHED_PIC) == 0) {
        streams.emplace_back(av_get_media_type_string(stream.codecpar->codec_type));
      } else {
        const auto& packet = stream.attached_pic;
        streams.push_back(
            avcodec_get_name(stream.codecpar->codec_id) +
            std::string(reinterpret_cast<const char*>(packet.data), static_cast<std::size_t>(packet.size)));
      }
    }
    return streams;
  }
};

class PictureInContainer : public Picture, public testing::WithParamInterface<std::string> {};

TEST_P(PictureInContainer, IsCopiedOnce) {
  run(media({{"input", quoted(album())}, {"output", quoted(path(GetParam()))}}));
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_THAT(streamsOf(GetParam()), testing::UnorderedElementsAre("audio", "png" + onePoint()));
  EXPECT_EQ(heard_->only("Started")->GetNotificationObject()->GetUint64("streams"), 1U);
}

INSTANTIATE_TEST_SUITE_P(Each, PictureInContainer,
                         testing::Values("out.mp3", "out.flac", "out.m4a", "out.mp4", "out.mkv"));

TEST_F(Picture, IsLeftOutWhenTheContainerDoesNotSupportIt) {
  for (const auto* name : {"out.wav", "out.avi", "out.nut", "out.mov"}) {
    heard_ = std::make_shared<Notifications>();
    run(media({{"input", quoted(album())}, {"output", quoted(path(name))}}));
    ASSERT_TRUE(heard_->only("Finished")) << failure();
    EXPECT_THAT(streamsOf(name), testing::ElementsAre("audio")) << name;
  }
}

TEST_F(Picture, IsNotVideo) {
  const auto input = album();
  run(media({{"input", quoted(input)}, {"output", quoted(path("picture.mkv"))}}));
  heard_ = std::make_shared<Notifications>();
  run(media({{"input", quoted(path("picture.mkv"))}, {"videoFilter", R"("hue=s=0")"}}));
  EXPECT_THAT(failure(), HasSubstr("no video"));
}

class NoVideo : public Picture, public testing::WithParamInterface<std::string> {};

TEST_P(NoVideo, IsWrittenToAnAudioContainer) {
  run(media({{"input", quoted(sharedClip())}, {"output", quoted(path(GetParam()))}}));
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_THAT(streamsOf(GetParam()), testing::ElementsAre("audio"));
  // It is not even decoded.
  EXPECT_EQ(heard_->only("Finished")->GetNotificationObject()->GetUint64("videoFrames"), 0U);
}

TEST_P(NoVideo, IsAskedOfAContainerOfSound) {
  run(media({{"input", quoted(sharedClip())},
             {"output", quoted(path(GetParam()))},
             {"settings", R"({"videoCodec": "png"})"}}));
  EXPECT_THAT(failure(), HasSubstr("cannot hold video, but a codec for it was requested"));
  heard_ = std::make_shared<Notifications>();
  run(media({{"input", quoted(sharedClip())},
             {"output", quoted(path(GetParam()))},
             {"videoFilter", R"("hue=s=0")"}}));
  EXPECT_THAT(failure(), HasSubstr("cannot hold video, but a filter for it was requested"));
}

INSTANTIATE_TEST_SUITE_P(Each, NoVideo, testing::Values("out.mp3", "out.flac", "out.aiff"));

}  // namespace
}  // namespace qor::engines::test
