#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/engines/EngineTest.h"

namespace qor::engines::test {
namespace {

using qor::examples::writeClip;
using qor::test::fileBytes;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

/// Errors in the media end with a notification that gives the reason, and without incomplete output.
class Failures : public EngineTest {
 protected:
  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path(name), std::ios::binary) << bytes;
  }

  /// Runs a document that has to fail, and returns the reason.
  std::string reasonOfRunning(const std::vector<std::pair<std::string, std::string>>& keys) {
    run(media(keys));
    auto reason = failure();
    EXPECT_EQ(engine().GetStatus(), tamb::EngineStatus::Failed);
    EXPECT_EQ(engine().GetLastErrorMessage(), reason);
    EXPECT_EQ(heard_->lines().back(), "Failed");
    EXPECT_TRUE(heard_->all().back()->IsAnError());
    EXPECT_THAT(heard_->ofLine("Finished"), IsEmpty());
    EXPECT_THAT(reason, Not(HasSubstr("\n")));
    return reason;
  }

  /// The bytes of a clip of one second as cameras write it.
  std::string compressedClip(const std::string& name) const {
    writeClip({.video = "testsrc2=size=64x48:rate=25:duration=1,format=yuv420p",
               .videoCodec = "mpeg4",
               .audio = "sine=sample_rate=48000:duration=1",
               .audioCodec = "aac"},
              path(name));
    return fileBytes(path(name));
  }

  /// What must not happen to any input: a crash, no end or two, or an output of a failed run.
  void expectOneEnd(const std::string& input, const std::string& output) {
    heard_ = std::make_shared<Notifications>();
    run(media({{"input", quoted(path(input))}, {"output", quoted(path(output))}}));
    const bool failed = !heard_->ofLine("Failed").empty();
    EXPECT_EQ(heard_->ofLine("Failed").size() + heard_->ofLine("Finished").size(), 1U);
    EXPECT_EQ(engine().GetStatus(), failed ? tamb::EngineStatus::Failed : tamb::EngineStatus::Stopped);
    EXPECT_EQ(std::filesystem::exists(path(output)), !failed);
    EXPECT_THAT(fileNames(), Each(Not(EndsWith(".part"))));
    std::filesystem::remove(path(output));
  }
};

TEST_F(Failures, AFileThatIsMissing) {
  EXPECT_THAT(reasonOfRunning({{"input", quoted(path("nowhere.mp4"))}}),
              AllOf(HasSubstr("nowhere.mp4"), HasSubstr("No such file")));
}

TEST_F(Failures, AFolderAsInput) {
  EXPECT_THAT(reasonOfRunning({{"input", quoted(path(""))}}), HasSubstr("Cannot open"));
}

TEST_F(Failures, AnEmptyFile) {
  write("in.mp4", "");
  EXPECT_THAT(reasonOfRunning({{"input", quoted(path("in.mp4"))}, {"output", quoted(path("out.mp4"))}}),
              HasSubstr("in.mp4"));
  EXPECT_FALSE(std::filesystem::exists(path("out.mp4")));
}

TEST_F(Failures, AFileOfText) {
  std::string text;
  for (int line = 0; line < 1'000; ++line) text += "This is no media file at all.\n";
  write("in.mkv", text);
  EXPECT_THAT(reasonOfRunning({{"input", quoted(path("in.mkv"))}}),
              AllOf(HasSubstr("in.mkv"), HasSubstr("Invalid data")));
}

TEST_F(Failures, FilesOfRandomBytesEndOneWayOrTheOther) {
  std::mt19937 random(4'711);
  for (const auto* name : {"in.mp4", "in.mkv", "in.avi", "in.mp3", "in.ts", "in.wav"}) {
    std::string bytes(20'000, '\0');
    for (auto& byte : bytes) byte = static_cast<char>(random());
    write(name, bytes);
    expectOneEnd(name, "out.mkv");
  }
}

TEST_F(Failures, TruncatedFilesEndOneWayOrTheOther) {
  for (const auto* name : {"whole.mkv", "whole.mp4", "whole.avi"}) {
    const auto bytes = compressedClip(name);
    const std::string cut = std::string("cut-") + name;
    for (std::size_t tenths = 1; tenths < 10; ++tenths) {
      write(cut, bytes.substr(0, bytes.size() * tenths / 10));
      expectOneEnd(cut, "out.mp4");
    }
  }
}

TEST_F(Failures, DamagedFilesEndOneWayOrTheOther) {
  std::mt19937 random(1'147);
  for (const auto* name : {"whole.mkv", "whole.mp4", "whole.avi"}) {
    const auto bytes = compressedClip(name);
    const std::string damaged = std::string("damaged-") + name;
    for (int trial = 0; trial < 15; ++trial) {
      auto changed = bytes;
      for (int place = 0; place < 1 + trial * 4; ++place) {
        changed[random() % changed.size()] = static_cast<char>(random());
      }
      write(damaged, changed);
      expectOneEnd(damaged, "out.mkv");
    }
  }
}

TEST_F(Failures, AnUnknownFilter) {
  EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())},
                               {"output", quoted(path("out.mkv"))},
                               {"audioFilter", R"("louder")"}}),
              AllOf(HasSubstr(R"("louder")"), HasSubstr("No such filter: 'louder'")));
  EXPECT_FALSE(std::filesystem::exists(path("out.mkv")));
}

TEST_F(Failures, AnUnknownFilterWithArguments) {
  // Whether FFmpeg complains about the name or about the arguments depends on its release.
  EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())}, {"audioFilter", R"("louder=2")"}}),
              AllOf(HasSubstr(R"("louder=2")"), HasSubstr("No ")));
}

TEST_F(Failures, ACauseNotItsConsequences) {
  // FFmpeg writes several lines about it; the first one is about what is wrong.
  EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())}, {"audioFilter", R"("volume=loud")"}}),
              HasSubstr("in 'loud'"));
}

TEST_F(Failures, AFilterThatItsTextDoesNotFit) {
  EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())}, {"videoFilter", R"("scale=width")"}}),
              HasSubstr(R"("scale=width")"));
}

TEST_F(Failures, AFilterForTheOtherKindOfStream) {
  EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())}, {"audioFilter", R"("hue=s=0")"}}),
              HasSubstr(R"(audio filter "hue=s=0")"));
}

TEST_F(Failures, AFilterWithoutAnEnd) {
  EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())}, {"audioFilter", R"("asplit[a][b]")"}}),
              HasSubstr("asplit[a][b]"));
}

TEST_F(Failures, AFilterForAMissingStream) {
  writeClip({.audio = "sine=duration=1"}, path("audio.wav"));
  EXPECT_THAT(reasonOfRunning({{"input", quoted(path("audio.wav"))}, {"videoFilter", R"("hue=s=0")"}}),
              AllOf(HasSubstr("audio.wav"), HasSubstr("no video")));
}

TEST_F(Failures, AFilterForAStreamThatTheContainerDoesNotTake) {
  EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())},
                               {"output", quoted(path("out.wav"))},
                               {"videoFilter", R"("hue=s=0")"}}),
              AllOf(HasSubstr("out.wav"), HasSubstr("video")));
}

TEST_F(Failures, LoudnessOfVideoAlone) {
  writeClip({.video = "testsrc2=size=64x48:rate=25:duration=1,format=yuv420p"}, path("video.mkv"));
  EXPECT_THAT(reasonOfRunning({{"input", quoted(path("video.mkv"))}, {"loudness", "true"}}),
              HasSubstr("no audio"));
}

TEST_F(Failures, AMissingFolder) {
  EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())}, {"output", quoted(path("nowhere/out.mkv"))}}),
              AllOf(HasSubstr("nowhere/out.mkv"), HasSubstr("No such file or directory")));
}

TEST_F(Failures, AnOutputThatIsAFolder) {
  std::filesystem::create_directory(path("out.mkv"));
  EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())}, {"output", quoted(path("out.mkv"))}}),
              AllOf(HasSubstr("out.mkv"), HasSubstr("Is a directory")));
}

TEST_F(Failures, AnUnknownFileExtension) {
  EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())}, {"output", quoted(path("out.thing"))}}),
              AllOf(HasSubstr("out.thing"), HasSubstr("\"container\"")));
}

TEST_F(Failures, SettingsThatNameNothing) {
  const auto with = [this](const std::string& settings) {
    heard_ = std::make_shared<Notifications>();
    return reasonOfRunning(
        {{"input", quoted(sharedClip())}, {"output", quoted(path("out.mkv"))}, {"settings", settings}});
  };
  EXPECT_THAT(with(R"({"container": "box"})"), HasSubstr(R"("box")"));
  EXPECT_THAT(with(R"({"container": "hls"})"), HasSubstr(R"("hls")"));
  EXPECT_THAT(with(R"({"videoCodec": "film"})"), HasSubstr(R"("film")"));
  EXPECT_THAT(with(R"({"audioCodec": "tape"})"), HasSubstr(R"("tape")"));
  EXPECT_THAT(with(R"({"audioCodec": "mpeg4"})"), HasSubstr(R"("mpeg4")"));
}

TEST_F(Failures, ACodecThatTheContainerDoesNotTake) {
  EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())},
                               {"output", quoted(path("out.mp4"))},
                               {"settings", R"({"audioCodec": "wmav2"})"}}),
              HasSubstr("out.mp4"));
  EXPECT_THAT(fileNames(), IsEmpty());
}

/// Encoders that take few sizes; nobody can tell which ones but they themselves.
struct Refusal {
  std::string codec;
  std::string container;
  std::string expected;
};

class FailuresOfEncoders : public Failures, public testing::WithParamInterface<Refusal> {};

TEST_P(FailuresOfEncoders, NameTheEncoderAndItsSizes) {
  EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())},
                               {"output", quoted(path("out"))},
                               {"settings", fmt::format(R"({{"videoCodec": {:?}, "container": {:?}}})",
                                                        GetParam().codec, GetParam().container)},
                               {"videoFilter", R"("scale=100:52")"}}),
              AllOf(HasSubstr("Cannot open the video encoder"), HasSubstr(quoted(GetParam().codec)),
                    HasSubstr("(100x52)"), HasSubstr(GetParam().expected)));
  EXPECT_THAT(fileNames(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Each, FailuresOfEncoders,
                         testing::Values(Refusal{"h263", "3gp", "Valid sizes are 128x96"},
                                         Refusal{"h261", "avi", "Valid sizes are 176x144"},
                                         Refusal{"dvvideo", "avi", "no DV profile for 100x52"}));

TEST_F(Failures, AnAudioEncoderThatDoesNotOpen) {
  EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())},
                               {"output", quoted(path("out.mkv"))},
                               {"settings", R"({"audioCodec": "roq_dpcm"})"}}),
              AllOf(HasSubstr(R"(Cannot open the audio encoder "roq_dpcm" (48000 Hz, 2 channels))"),
                    HasSubstr("22050")));
  EXPECT_THAT(fileNames(), IsEmpty());
}

TEST_F(Failures, ADiskThatIsFull) {
  for (const auto* container : {"nut", "matroska", "avi"}) {
    heard_ = std::make_shared<Notifications>();
    EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())},
                                 {"output", R"("/dev/full")"},
                                 {"settings", std::string(R"({"container": ")") + container + "\"}"}}),
                AllOf(HasSubstr("/dev/full"), HasSubstr("No space left")))
        << container;
  }
}

TEST_F(Failures, TheSameFileAsInputAndOutput) {
  std::filesystem::copy_file(sharedClip(), path("in.mkv"));
  const auto before = fileBytes(path("in.mkv"));
  for (const std::string scheme : {"", "file:"}) {
    for (const std::string otherScheme : {"", "file:"}) {
      heard_ = std::make_shared<Notifications>();
      EXPECT_THAT(reasonOfRunning({{"input", quoted(scheme + path("in.mkv"))},
                                   {"output", quoted(otherScheme + path("./in.mkv"))}}),
                  HasSubstr("the same file"));
    }
  }
  EXPECT_EQ(fileBytes(path("in.mkv")), before);
}

TEST_F(Failures, AFailureKeepsTheFileThatWasThereBefore) {
  write("out.mkv", "valuable");
  // It fails in the middle: the picture's size depends on the time.
  EXPECT_THAT(reasonOfRunning({{"input", quoted(sharedClip())},
                               {"output", quoted(path("out.mkv"))},
                               {"videoFilter", R"("scale=w='if(gt(n,20),32,64)':h=48:eval=frame")"}}),
              HasSubstr("64x48 to 32x48"));
  EXPECT_EQ(fileBytes(path("out.mkv")), "valuable");
  EXPECT_THAT(fileNames(), ElementsAre("out.mkv"));
}

TEST_F(Failures, ATruncatedFileIsLogged) {
  writeClip({.audio = "sine=sample_rate=48000:duration=4"}, path("in.mkv"));
  const auto bytes = fileBytes(path("in.mkv"));
  write("in.mkv", bytes.substr(0, bytes.size() / 2));
  run(media({{"input", quoted(path("in.mkv"))}}));
  EXPECT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_THAT(log_.recordsWith("although its duration is given as"), SizeIs(1));
}

TEST_F(Failures, ACommandThatWaitsIsAnsweredBeforeTheFailure) {
  make(media({{"input", quoted(sharedClip())},
              {"output", quoted(path("out.mkv"))},
              {"audioFilter", R"("volume=1")"},
              {"videoFilter", R"("scale=w='if(gt(n,20),32,64)':h=48:eval=frame")"}}));
  const auto id = filterCommand(at(3, 2), "volume", "volume", "0");
  engine().Run();
  EXPECT_THAT(reasonOf(heard_->answerTo(id)), HasSubstr("the run has failed"));
  EXPECT_EQ(heard_->lines().back(), "Failed");
}

TEST_F(Failures, AnEngineWithoutADescription) {
  make(media({{"input", R"("a")"}}));
  EXPECT_THROW(engine().AddEngineDescription(nullptr), std::runtime_error);
}

TEST_F(Failures, FfmpegsLinesGoToTheLogWithoutAddresses) {
  reasonOfRunning({{"input", quoted(sharedClip())}, {"audioFilter", R"("louder")"}});
  const auto records = log_.recordsWith("No such filter: 'louder'");
  ASSERT_THAT(records, Not(IsEmpty()));
  EXPECT_EQ(records.front().level, tamb::LogLevel::Error);
  EXPECT_THAT(records.front().message, AllOf(HasSubstr("FFmpeg: "), Not(HasSubstr("0x"))));
}

}  // namespace
}  // namespace qor::engines::test
