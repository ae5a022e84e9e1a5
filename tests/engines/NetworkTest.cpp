#include <filesystem>
#include <fstream>
#include <string>

#include "tests/engines/EngineTest.h"
#include "tests/engines/HttpServer.h"

namespace qor::engines::test {
namespace {

using qor::examples::Clip;
using qor::examples::writeClip;
using qor::test::fileBytes;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

struct Source {
  std::string name;
  Clip clip;
};

/// Media that come over the network.
class Network : public EngineTest, public testing::WithParamInterface<Source> {
 protected:
  /// The media, and the earlier output.
  std::string bytes() const {
    writeClip(GetParam().clip, path(GetParam().name));
    auto bytes = fileBytes(path(GetParam().name));
    std::filesystem::remove(path(GetParam().name));
    std::ofstream(path("out.mkv")) << "earlier";
    return bytes;
  }

  void convert(const HttpServer& server) {
    run(media({{"input", quoted(server.url(GetParam().name))}, {"output", quoted(path("out.mkv"))}}));
  }

  void expectBrokenOff() const {
    EXPECT_THAT(failure(),
                AllOf(HasSubstr("Cannot read \"http://127.0.0.1:"), HasSubstr("Input/output error")));
    EXPECT_EQ(fileBytes(path("out.mkv")), "earlier");
    EXPECT_THAT(fileNames(), ElementsAre("out.mkv"));
  }
};

TEST_P(Network, MayBreakNoFileOff) {
  const auto whole = bytes();
  const HttpServer server(whole.substr(0, whole.size() * 6 / 10), whole.size());
  convert(server);
  expectBrokenOff();
}

TEST_P(Network, CarriesFilesToTheirEnds) {
  const auto whole = bytes();
  const HttpServer server(whole, whole.size());
  convert(server);
  const auto finished = heard_->only("Finished");
  ASSERT_TRUE(finished) << failure();
  EXPECT_EQ(finished->GetNotificationObject()->GetUint64("videoFrames"), 50U);
}

const Source smallFlv{"in.flv", {.video = "testsrc2=size=64x48:rate=25:duration=2", .videoCodec = "flv"}};

// The first two are read as a whole before their first picture, the last one is not.
INSTANTIATE_TEST_SUITE_P(
    Each, Network,
    testing::Values(
        smallFlv, Source{"in.ts", {.video = "testsrc2=size=64x48:rate=25:duration=2", .videoCodec = "mpeg4"}},
        Source{
            "in.mkv",
            {.video = "testsrc2=size=640x480:rate=25:duration=2,format=yuv420p", .videoCodec = "rawvideo"}}),
    [](const auto& source) { return source.param.name.substr(3); });

class NetworkBetweenPackets : public Network {};

TEST_P(NetworkBetweenPackets, MayBreakNoFileOff) {
  const auto whole = bytes();
  // A tag: its type, three bytes of its size, seven others, what it holds, and its whole size.
  const auto byte = [&](std::size_t at) { return std::size_t{static_cast<unsigned char>(whole.at(at))}; };
  std::size_t end = 13;
  while (end < whole.size() / 2) {
    end += 11 + (byte(end + 1) << 16U | byte(end + 2) << 8U | byte(end + 3)) + 4;
  }
  const HttpServer server(whole.substr(0, end), whole.size());
  convert(server);
  expectBrokenOff();
}

INSTANTIATE_TEST_SUITE_P(Each, NetworkBetweenPackets, testing::Values(smallFlv));

}  // namespace
}  // namespace qor::engines::test
