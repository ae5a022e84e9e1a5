#pragma once

#include <memory>

#include "tamb/ILoggerWriter.h"

namespace tamb {

/// Makes `writer` the process's current logger writer, which then also receives the records of qor::utils,
/// and returns the previous one; empty means none. Any thread; a record that is being written may still go to
/// the previous writer, which stays alive for it. The writer that is current at the end of the process is not
/// destroyed: to have it destroyed, set an empty one.
std::shared_ptr<ILoggerWriter> SetCurrentLoggerWriter(std::shared_ptr<ILoggerWriter> writer);

}  // namespace tamb
