#include <algorithm>
#include <ostream>
#include <string>

#include "engines/media/KindConverter.h"
#include "tests/engines/EngineTest.h"
#include "tests/engines/FfmpegProgram.h"

namespace qor::engines::test {
namespace {

using qor::examples::writeClip;
using qor::test::ffmpegConvert;
using qor::test::readBack;
using testing::IsEmpty;
using testing::SizeIs;

/// The colour range that an output declares is that of its pictures.
class Colours : public EngineTest {
 protected:
  /// Black pictures of the full range, from 0, or of the limited one, from 16.
  void writeBlack(const std::string& range) const {
    writeClip({.video = "color=black:size=64x48:rate=25:duration=0.2,format=yuv420p"}, path("black.mkv"));
    ffmpegConvert(path("black.mkv"), path("in.mkv"),
                  "-c:v ffv1 -color_range " + range + " -vf lutyuv=y=" + (range == "pc" ? "0" : "16"));
    ASSERT_EQ(readBack(path("in.mkv")).colourRange, range);
  }
};

struct Case {
  std::string input;
  std::string filter;
  std::string output;
};

void PrintTo(const Case& each, std::ostream* out) { *out << each.input << " through " << each.filter; }

class ColourRanges : public Colours, public testing::WithParamInterface<Case> {};

TEST_P(ColourRanges, AreThoseOfThePictures) {
  const auto& [input, filter, output] = GetParam();
  writeBlack(input);
  run(media({{"input", quoted(path("in.mkv"))},
             {"output", quoted(path("out.mkv"))},
             {"videoFilter", quoted(filter)}}));
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  const auto result = readBack(path("out.mkv"));
  ASSERT_THAT(result.pictures, SizeIs(5));
  // The default range of scale differs between releases of FFmpeg.
  EXPECT_EQ(result.colourRange, output.empty() ? result.colourRange : output);
  EXPECT_NEAR(result.pictures.front().luma, result.colourRange == "pc" ? 0 : 16, 0.5) << result.colourRange;
  EXPECT_THAT(log_.recordsWith("FFmpeg: "), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Each, ColourRanges,
                         testing::Values(Case{"pc", "null", "pc"}, Case{"tv", "null", "tv"},
                                         Case{"pc", "scale=32:24", ""}, Case{"tv", "scale=32:24", "tv"},
                                         Case{"pc", "scale=64:48,hflip", "pc"},
                                         Case{"pc", "scale=32:24:out_range=pc", "pc"},
                                         Case{"tv", "scale=64:48:out_range=pc", "pc"},
                                         Case{"tv", "scale=32:24:out_range=pc,hflip,fps=25", "pc"},
                                         Case{"pc", "format=yuv444p", ""},
                                         Case{"pc", "setparams=range=tv,scale=32:24:out_range=pc", "pc"}));

TEST_F(Colours, KeepTheirRangeInPicturesOfAnotherSize) {
  const auto black = [](int width, int height) {
    auto frame = makeFrame();
    frame->width = width;
    frame->height = height;
    frame->format = AV_PIX_FMT_YUV420P;
    frame->color_range = AVCOL_RANGE_JPEG;
    frame->pts = 0;
    EXPECT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
    for (int plane = 0; plane < 3; ++plane) {
      const auto size = static_cast<std::size_t>(frame->linesize[plane]) *
                        static_cast<std::size_t>(plane == 0 ? height : height / 2);
      std::fill_n(frame->data[plane], size, plane == 0 ? 0 : 128);
    }
    return frame;
  };
  KindConverter converter(*black(64, 48), {1, 25});
  const auto frames = converter.convert(black(128, 96), {1, 25});
  ASSERT_THAT(frames, SizeIs(1));
  EXPECT_EQ(frames.front()->width, 64);
  EXPECT_EQ(frames.front()->data[0][0], 0);
}

}  // namespace
}  // namespace qor::engines::test
