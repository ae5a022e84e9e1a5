#pragma once

#include <string>
#include <vector>

#include "engines/media/FfmpegHandles.h"

namespace qor::engines {

/// The filters, with their arguments, that turn and mirror pictures as a player would show them. What the
/// first frame says comes before what the container says; none are needed when neither says anything.
std::vector<std::string> uprightFilters(const AVStream& stream, const AVFrame& first);

}  // namespace qor::engines
