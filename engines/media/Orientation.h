#pragma once

#include <string>
#include <vector>

#include "engines/media/FfmpegHandles.h"

namespace qor::engines {

/// The filters, with their arguments, that rotate and mirror pictures as a player would. The first frame's
/// data take precedence over the container's; empty if neither has any.
std::vector<std::string> uprightFilters(const AVStream& stream, const AVFrame& first);

}  // namespace qor::engines
