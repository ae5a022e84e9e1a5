#include <string>

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

TEST_F(Loudness, IsToldOnceASecondOfMediaTime) {
  measure("");
  const auto reports = heard_->ofLine("Loudness");
  ASSERT_THAT(reports, SizeIs(4));
  for (std::size_t index = 0; index < reports.size(); ++index) {
    EXPECT_EQ(reports[index]->GetTime().GetTimeNumber(), static_cast<std::int64_t>(index + 1) * 1'000);
    EXPECT_NEAR(reports[index]->GetNotificationObject()->GetDouble("momentary"), -23.0, 0.1);
    EXPECT_NEAR(reports[index]->GetNotificationObject()->GetDouble("integrated"), -23.0, 0.1);
  }
}

TEST_F(Loudness, IsThatBehindTheFilter) {
  measure(R"(, "audioFilter": "volume=-10dB")");
  EXPECT_NEAR(integrated(), -33.0, 0.1);
}

TEST_F(Loudness, IsMeasuredBesideTheOutputWhichStaysAsItIs) {
  measure(R"(, "output": ")" + path("out.wav") + '"');
  EXPECT_NEAR(integrated(), -23.0, 0.1);
  EXPECT_EQ(qor::test::readBack(path("out.wav")).samples, qor::test::readBack(path("tone.wav")).samples);
}

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
