#pragma once

#include <string>

#include "tamb/MediaTime.h"

namespace tamb {

/// What an engine is doing.
enum class EngineStatus : int {
  Undefined = 0,
  Idle = 1,
  Running = 2,
  Stopped = 3,
  Failed = 4,
};

/// Where an engine stands in its media.
struct TimeInfo {
  /// The media time reached.
  MediaTime position;
  /// The media duration; its time number is 0 when it is not known.
  MediaTime duration;
};

/// What can be read of a running element. Callable from any thread.
class IBasicStatusControl {
 public:
  virtual ~IBasicStatusControl() = default;
  virtual EngineStatus GetStatus() const = 0;
  /// Empty when nothing has failed.
  virtual std::string GetLastErrorMessage() const = 0;
  /// The time of the step, input or output of that name; throws TAMBRuntimeError when there is none.
  virtual TimeInfo GetCurrentTimeInfo(const std::string& name) const = 0;
};

}  // namespace tamb
