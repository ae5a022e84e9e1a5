#include "engines/media/Orientation.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/display.h>
}

namespace qor::engines {

namespace {

/// The linear map of a picture's points: x' = a x + c y, y' = b x + d y; y counts downwards.
struct Turn {
  double a = 1;
  double b = 0;
  double c = 0;
  double d = 1;
};

/// FFmpeg's matrix has nine numbers in rows; the four used here are fixed-point numbers with 16 fractional
/// bits.
Turn turnOf(const std::uint8_t* bytes) {
  std::array<std::int32_t, 9> matrix{};
  std::memcpy(matrix.data(), bytes, sizeof(matrix));
  const auto number = [&](std::size_t index) { return static_cast<double>(matrix.at(index)) / 65'536; };
  return {number(0), number(1), number(3), number(4)};
}

std::optional<Turn> turnOf(const AVFrame& frame) {
  const auto* const data = av_frame_get_side_data(&frame, AV_FRAME_DATA_DISPLAYMATRIX);
  if (data == nullptr || data->size < 9 * sizeof(std::int32_t)) {
    return std::nullopt;
  }
  return turnOf(data->data);
}

std::optional<Turn> turnOf(const AVStream& stream) {
#if LIBAVCODEC_VERSION_MAJOR >= 61
  const auto& parameters = *stream.codecpar;
  const auto* const data = av_packet_side_data_get(parameters.coded_side_data, parameters.nb_coded_side_data,
                                                   AV_PKT_DATA_DISPLAYMATRIX);
  if (data == nullptr || data->size < 9 * sizeof(std::int32_t)) {
    return std::nullopt;
  }
  return turnOf(data->data);
#else
  std::size_t size = 0;
  const auto* const data = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
  if (data == nullptr || size < 9 * sizeof(std::int32_t)) {
    return std::nullopt;
  }
  return turnOf(data);
#endif
}

/// Degrees; smaller angles are rounding errors.
constexpr double tolerance = 1;

}  // namespace

std::vector<std::string> uprightFilters(const AVStream& stream, const AVFrame& first) {
  auto given = turnOf(first);
  if (!given) {
    given = turnOf(stream);
  }
  if (!given) {
    return {};
  }
  const auto [a, b, c, d] = *given;
  const double along = std::hypot(a, c);
  const double down = std::hypot(b, d);
  if (along == 0 || down == 0) {
    return {};  // A degenerate matrix would collapse the picture.
  }
  const double slant = std::sin(tolerance * std::acos(-1) / 180);
  if (std::abs(b) < slant * down && std::abs(c) < slant * along) {
    std::vector<std::string> filters;
    if (a < 0) filters.emplace_back("hflip");
    if (d < 0) filters.emplace_back("vflip");
    return filters;
  }
  if (std::abs(a) < slant * along && std::abs(d) < slant * down) {
    // Swapping x and y is FFmpeg's "cclock_flip".
    if (b > 0) return {c > 0 ? "transpose=cclock_flip" : "transpose=clock"};
    return {c > 0 ? "transpose=cclock" : "transpose=clock_flip"};
  }
  std::vector<std::string> filters;
  const bool mirrored = a * d - b * c < 0;
  if (mirrored) {
    filters.emplace_back("hflip");
  }
  // After the mirror, the remaining map takes x to (a, b).
  const double angle = mirrored ? std::atan2(-b, -a) : std::atan2(b, a);
  filters.push_back(fmt::format("rotate={:.6f}", angle));
  return filters;
}

}  // namespace qor::engines
