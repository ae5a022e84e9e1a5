#include <array>
#include <cstdint>
#include <fstream>
#include <string>

#include "tests/engines/EngineTest.h"

namespace qor::engines::test {
namespace {

using qor::examples::writeClip;
using qor::test::fileBytes;
using qor::test::readBack;
using testing::ElementsAre;
using testing::SizeIs;

/// Where the points of a picture go: x' = a x + c y, y' = b x + d y, y counts downwards.
struct Turn {
  int a;
  int b;
  int c;
  int d;
  /// The lumas of the four quarters as displayed: upper left, upper right, lower left, lower right. They are
  /// 40, 90, 140 and 190 in the file.
  std::array<int, 4> seen;
};

/// Pictures of cameras held upright, on their side or upside down, or in front of a mirror.
class Orientation : public EngineTest {
 protected:
  static std::string quoted(const std::string& text) { return '"' + text + '"'; }

  /// A clip of four quarters with different lumas, 64x48, with a display matrix.
  std::string turnedClip(const Turn& turn) const {
    auto name = path("in.mov");
    writeClip({.video = "color=size=64x48:rate=25:duration=0.4,format=yuv420p,"
                        "geq=lum='if(lt(Y,24),if(lt(X,32),40,90),if(lt(X,32),140,190))':cb=128:cr=128",
               .videoCodec = "mpeg4"},
              name);
    auto bytes = fileBytes(name);
    // Behind the name of the box: version, times, id, durations, layers and volume.
    const auto matrix = bytes.find("tkhd") + 44;
    const std::array<int, 5> members{turn.a, turn.b, 0, turn.c, turn.d};
    for (std::size_t index = 0; index < members.size(); ++index) {
      const auto number = static_cast<std::uint32_t>(members.at(index)) << 16U;
      for (std::size_t byte = 0; byte < 4; ++byte) {
        bytes.at(matrix + 4 * index + byte) = static_cast<char>(number >> (24U - 8U * byte) & 0xFFU);
      }
    }
    std::ofstream(name, std::ios::binary) << bytes;
    return name;
  }

  /// The mean luma of a quarter of the run's pictures, which crop=iw/2:ih/2 picks.
  int quarter(const std::string& input, const std::string& place) {
    heard_ = std::make_shared<Notifications>();
    run(media({{"input", quoted(input)},
               {"output", quoted(path("quarter.mkv"))},
               {"videoFilter", quoted("format=yuv420p,crop=iw/2:ih/2:" + place)}}));
    EXPECT_TRUE(heard_->only("Finished")) << failure();
    const auto pictures = readBack(path("quarter.mkv")).pictures;
    EXPECT_THAT(pictures, SizeIs(10));
    // A difference of ten means another quarter.
    return pictures.empty() ? 0 : static_cast<int>((pictures.back().luma + 5) / 10) * 10;
  }
};

class OrientationOfFile : public Orientation, public testing::WithParamInterface<Turn> {};

TEST_P(OrientationOfFile, IsThatOfThePlayer) {
  const auto& turn = GetParam();
  const auto input = turnedClip(turn);
  run(media({{"input", quoted(input)}, {"output", quoted(path("out.mov"))}}));
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  const auto whole = readBack(path("out.mov"));
  EXPECT_EQ(whole.width, turn.a == 0 ? 48 : 64);
  EXPECT_EQ(whole.height, turn.a == 0 ? 64 : 48);
  EXPECT_EQ(quarter(input, "0:0"), turn.seen[0]);
  EXPECT_EQ(quarter(input, "iw/2:0"), turn.seen[1]);
  EXPECT_EQ(quarter(input, "0:ih/2"), turn.seen[2]);
  EXPECT_EQ(quarter(input, "iw/2:ih/2"), turn.seen[3]);
}

TEST_P(OrientationOfFile, IsNotAppliedAgainByThePlayer) {
  const auto input = turnedClip(GetParam());
  run(media({{"input", quoted(input)}, {"output", quoted(path("once.mov"))}}));
  heard_ = std::make_shared<Notifications>();
  run(media({{"input", quoted(path("once.mov"))}, {"output", quoted(path("twice.mov"))}}));
  ASSERT_TRUE(heard_->only("Finished")) << failure();
  const auto once = readBack(path("once.mov"));
  const auto twice = readBack(path("twice.mov"));
  EXPECT_EQ(once.width, twice.width);
  EXPECT_EQ(quarter(path("twice.mov"), "0:0"), GetParam().seen[0]);
  EXPECT_EQ(quarter(path("twice.mov"), "iw/2:0"), GetParam().seen[1]);
}

INSTANTIATE_TEST_SUITE_P(
    Each, OrientationOfFile,
    testing::Values(Turn{1, 0, 0, 1, {40, 90, 140, 190}}, Turn{-1, 0, 0, 1, {90, 40, 190, 140}},
                    Turn{1, 0, 0, -1, {140, 190, 40, 90}}, Turn{-1, 0, 0, -1, {190, 140, 90, 40}},
                    Turn{0, 1, 1, 0, {40, 140, 90, 190}}, Turn{0, 1, -1, 0, {140, 40, 190, 90}},
                    Turn{0, -1, 1, 0, {90, 190, 40, 140}}, Turn{0, -1, -1, 0, {190, 90, 140, 40}}));

TEST_F(Orientation, OfADegenerateMatrixIsIgnored) {
  const auto input = turnedClip({0, 0, 0, 0, {}});
  EXPECT_EQ(quarter(input, "0:0"), 40);
}

}  // namespace
}  // namespace qor::engines::test
