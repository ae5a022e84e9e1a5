#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "engines/media/MediaInput.h"
#include "tests/engines/EngineTest.h"

namespace qor::engines::test {
namespace {

using qor::examples::writeClip;
using qor::test::fileBytes;
using testing::HasSubstr;

std::uint32_t numberAt(const std::string& bytes, std::size_t place) {
  std::uint32_t number = 0;
  for (std::size_t index = 0; index < 4; ++index) {
    number = number << 8U | static_cast<unsigned char>(bytes.at(place + index));
  }
  return number;
}

void setNumberAt(std::string& bytes, std::size_t place, std::uint32_t number) {
  for (std::size_t index = 4; index > 0; --index, number >>= 8U) {
    bytes.at(place + index - 1) = static_cast<char>(number & 0xFFU);
  }
}

/// Files that are well-formed and yet try to bring a run off its way.
class HostileFiles : public EngineTest {
 protected:
  /// Makes a sample of the first stream of a QuickTime file empty: its bytes go to the one before.
  void emptySample(const std::string& name, std::size_t sample) const {
    auto bytes = fileBytes(path(name));
    const auto sizes = bytes.find("stsz", bytes.rfind("moov")) + 16;
    const auto place = sizes + 4 * sample;
    setNumberAt(bytes, place - 4, numberAt(bytes, place - 4) + numberAt(bytes, place));
    setNumberAt(bytes, place, 0);
    std::ofstream(path(name), std::ios::binary) << bytes;
  }

  std::uint64_t count(const std::string& key) const {
    const auto finished = heard_->only("Finished");
    return finished ? finished->GetNotificationObject()->GetUint64(key) : 0;
  }
};

TEST_F(HostileFiles, AnEmptyPacketIsNotTheEndOfItsStream) {
  writeClip({.video = "testsrc2=size=64x48:rate=25:duration=2,format=yuvj420p",
             .videoCodec = "mjpeg",
             .audio = "sine=sample_rate=48000:duration=2"},
            path("in.mov"));
  emptySample("in.mov", 10);
  run(media({{"input", quoted(path("in.mov"))}}));
  EXPECT_EQ(count("videoFrames"), 49U) << failure();
}

TEST_F(HostileFiles, AnEmptyPacketAtTheEndIsIgnored) {
  writeClip({.video = "testsrc2=size=64x48:rate=25:duration=2,format=yuvj420p", .videoCodec = "mjpeg"},
            path("in.mov"));
  emptySample("in.mov", 49);
  run(media({{"input", quoted(path("in.mov"))}}));
  EXPECT_EQ(count("videoFrames"), 49U) << failure();
}

TEST_F(HostileFiles, AStreamWithoutReaderDoesNotBlockTheOther) {
  writeClip({.video = "color=size=16x16:rate=1000:duration=21,format=yuv420p",
             .videoCodec = "mpeg4",
             .audio = "sine=sample_rate=8000:duration=21"},
            path("in.nut"));
  RunWatch watch;
  const StepNotifications nobody(nullptr, {});
  const MediaReports reports(nobody);
  MediaFaults faults(reports, OnError::Fail);
  MediaInput input(path("in.nut"), faults, watch);
  input.select(*input.video());
  input.select(*input.audio());
  PacketHandle packet;
  const auto takeSound = [&] {
    auto outcome = MediaInput::Outcome::Packet;
    while (outcome == MediaInput::Outcome::Packet) outcome = input.nextPacket(*input.audio(), packet);
    return outcome;
  };
  EXPECT_EQ(takeSound(), MediaInput::Outcome::OthersFirst);
  input.deselect(*input.video());
  EXPECT_EQ(takeSound(), MediaInput::Outcome::End);
}

TEST_F(HostileFiles, TimeDoesNotRunAwayInSmallSteps) {
  // Each step is one that media may take.
  writeClip({.video = "color=size=16x16:rate=1:duration=4000,setpts='N*82800/TB',format=gray"},
            path("in.nut"));
  run(media({{"input", quoted(path("in.nut"))}}));
  EXPECT_THAT(failure(), HasSubstr("its time stamps have reached"));
}

}  // namespace
}  // namespace qor::engines::test
