#include "tests/engines/FfmpegProgram.h"

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace qor::test {

namespace {

constexpr int commandNotFound = 127;

/// The exit status, and what the program writes to its standard output.
std::pair<int, std::string> ffmpeg(const std::string& arguments) {
  const auto command = "exec ffmpeg -nostdin -v quiet -y -threads 1 " + arguments;
  auto* const pipe = popen(command.c_str(), "r");  // NOLINT(cert-env33-c): the tests choose the words.
  if (pipe == nullptr) throw std::runtime_error("cannot start ffmpeg");
  std::string output;
  std::array<char, 4096> part{};
  while (const auto size = std::fread(part.data(), 1, part.size(), pipe)) output.append(part.data(), size);
  const int status = pclose(pipe);
  if (WIFEXITED(status) && WEXITSTATUS(status) == commandNotFound) {
    throw std::runtime_error("there is no program ffmpeg");
  }
  return {status, output};
}

struct Stream {
  std::string type;
  double unit = 0;  ///< seconds
};

}  // namespace

FfmpegFrames ffmpegFrames(const std::string& path) {
  std::istringstream lines(
      ffmpeg("-i '" + path + "' -fps_mode passthrough -c:v rawvideo -c:a pcm_s16le -f framecrc -").second);
  FfmpegFrames frames;
  std::map<int, Stream> streams;
  for (std::string line; std::getline(lines, line);) {
    int index = 0;
    int numerator = 0;
    int denominator = 0;
    std::array<char, 16> type{};
    long long pts = 0;
    long long duration = 0;
    if (std::sscanf(line.c_str(), "#tb %d: %d/%d", &index, &numerator, &denominator) == 3) {
      streams[index].unit = static_cast<double>(numerator) / denominator;
    } else if (std::sscanf(line.c_str(), "#media_type %d: %15s", &index, type.data()) == 2) {
      streams[index].type = type.data();
    } else if (std::sscanf(line.c_str(), "%d, %*d, %lld, %lld", &index, &pts, &duration) == 3) {
      const auto& stream = streams[index];
      ++(stream.type == "video" ? frames.video : frames.audio);
      frames.end = std::max(frames.end, static_cast<double>(pts + duration) * stream.unit);
    }
  }
  return frames;
}

void ffmpegConvert(const std::string& input, const std::string& output, const std::string& options) {
  if (ffmpeg("-i '" + input + "' " + options + " '" + output + "'").first != 0) {
    throw std::runtime_error("ffmpeg cannot convert " + input);
  }
}

}  // namespace qor::test
