#pragma once

#include <memory>

#include "tamb/ILoggerWriter.h"

namespace tamb {

/// Makes `writer` the process's current logger writer, which from then on takes the records of qor::utils
/// too, and returns the one before it; empty means none. Any thread; a record being written meanwhile may
/// still go to the previous writer, which stays alive for it. The writer that is current when the process
/// ends is not destroyed: to have it destroyed, set an empty one.
std::shared_ptr<ILoggerWriter> SetCurrentLoggerWriter(std::shared_ptr<ILoggerWriter> writer);

}  // namespace tamb
