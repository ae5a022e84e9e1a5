#include <fmt/format.h>

#include <map>
#include <string>
#include <tuple>

#include "tests/engines/EngineTest.h"

namespace qor::engines::test {
namespace {

using qor::examples::writeClip;
using testing::SizeIs;

/// Loudness of tones whose loudness is known: a stereo sine of 997 Hz has as many LUFS as its peak has dBFS.
class Loudness : public EngineTest {
 protected:
  /// The measured tone has a peak of -23 dBFS, and lasts 4.5 s.
  void measure(const std::string& more, const std::string& rate = "48000") {
    writeClip({.audio = "aevalsrc=0.0707946*sin(2*PI*997*t)|0.0707946*sin(2*PI*997*t):d=4.5:s=" + rate,
               .audioCodec = "pcm_s16le"},
              path("tone.wav"));
    run(R"({"engine": "media", "loudness": true, "input": ")" + path("tone.wav") + '"' + more + "}");
  }
  double integrated() const {
    const auto finished = heard_->only("Finished");
    return finished ? finished->GetNotificationObject()->GetDouble("integrated") : 0;
  }
};

TEST_F(Loudness, OfAToneIsItsPeakLevel) {
  measure("");
  EXPECT_NEAR(integrated(), -23.0, 0.1) << failure();
}

TEST_F(Loudness, DoesNotDependOnTheSampleRate) {
  measure("", "44100");
  EXPECT_NEAR(integrated(), -23.0, 0.1);
}

TEST_F(Loudness, IsReportedOnceASecondOfMediaTime) {
  measure("");
  const auto reports = heard_->ofLine("Loudness");
  ASSERT_THAT(reports, SizeIs(4));
  for (std::size_t index = 0; index < reports.size(); ++index) {
    EXPECT_EQ(reports[index]->GetTime().GetTimeNumber(), static_cast<std::int64_t>(index + 1) * 1'000);
    EXPECT_NEAR(reports[index]->GetNotificationObject()->GetDouble("momentary"), -23.0, 0.1);
    EXPECT_NEAR(reports[index]->GetNotificationObject()->GetDouble("integrated"), -23.0, 0.1);
  }
}

TEST_F(Loudness, IsMeasuredAfterTheFilter) {
  measure(R"(, "audioFilter": "volume=-10dB")");
  EXPECT_NEAR(integrated(), -33.0, 0.1);
}

TEST_F(Loudness, IsMeasuredWithoutChangingTheOutput) {
  measure(R"(, "output": ")" + path("out.wav") + '"');
  EXPECT_NEAR(integrated(), -23.0, 0.1);
  EXPECT_EQ(qor::test::readBack(path("out.wav")).samples, qor::test::readBack(path("tone.wav")).samples);
}

/// How long the sound is, in samples, against blocks of 100 ms, of which the meter takes its measures.
class LoudnessOfLength : public Loudness,
                         public testing::WithParamInterface<std::tuple<std::string, std::string, double>> {};

TEST_P(LoudnessOfLength, CountsAllWholeBlocks) {
  const auto& [rate, layout, seconds] = GetParam();
  // The channels that R128 gives no weight of its own; more of them are that much louder.
  const std::map<std::string, double> louder{{"mono", -3.01}, {"stereo", 0}, {"3.0", 1.76}};
  const std::string tone = "0.0707946*sin(2*PI*997*t)";
  const std::map<std::string, std::string> channels{
      {"mono", tone}, {"stereo", tone + "|" + tone}, {"3.0", tone + "|" + tone + "|" + tone}};
  writeClip({.audio = fmt::format("aevalsrc={}:c={}:d={}:s={}", channels.at(layout), layout, seconds, rate),
             .audioCodec = "flac"},
            path("tone.mkv"));
  run(R"({"engine": "media", "loudness": true, "input": ")" + path("tone.mkv") + "\"}");
  EXPECT_NEAR(integrated(), seconds < 0.4 ? -70.0 : -23.0 + louder.at(layout), 0.1) << failure();
  for (const auto& each : heard_->ofLine("Loudness")) {
    EXPECT_NEAR(each->GetNotificationObject()->GetDouble("momentary"), -23.0 + louder.at(layout), 0.1);
  }
}

INSTANTIATE_TEST_SUITE_P(Each, LoudnessOfLength,
                         testing::Combine(testing::Values("8000", "11025", "44100", "48000"),
                                          testing::Values("mono", "stereo", "3.0"),
                                          // One of them ends 5 samples of 11 025 Hz behind its ten blocks.
                                          testing::Values(0.3, 0.55, 1.0, 1.234, 3.05)));

TEST_F(Loudness, OfSilenceIsANumber) {
  writeClip({.audio = "anullsrc=duration=2"}, path("silence.wav"));
  run(R"({"engine": "media", "loudness": true, "input": ")" + path("silence.wav") + "\"}");
  EXPECT_EQ(integrated(), -70.0);
  for (const auto& each : heard_->ofLine("Loudness")) {
    EXPECT_EQ(each->GetNotificationObject()->GetDouble("momentary"), -120.0);
  }
}

TEST_F(Loudness, OfVeryLittleIsANumber) {
  writeClip({.audio = "sine=duration=0.05"}, path("short.wav"));
  run(R"({"engine": "media", "loudness": true, "input": ")" + path("short.wav") + "\"}");
  EXPECT_EQ(integrated(), -70.0);
}

}  // namespace
}  // namespace qor::engines::test
