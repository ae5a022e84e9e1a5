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

/// What can be read of an element, also while it runs. Any thread; does not block.
class IBasicStatusControl {
 public:
  virtual ~IBasicStatusControl() = default;
  /// Undefined when it is not known, as at the proxy of a remote engine. Does not throw.
  virtual EngineStatus GetStatus() const = 0;
  /// Why the element failed, in one line for people; empty if it has not failed. Does not throw.
  virtual std::string GetLastErrorMessage() const = 0;
  /// The time of the step, input or output of that name; throws TAMBRuntimeError if the name is unknown.
  virtual TimeInfo GetCurrentTimeInfo(const std::string& name) const = 0;
};

}  // namespace tamb
