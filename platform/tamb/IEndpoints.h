#pragma once

#include <string>

namespace tamb {

/// Where an engine reads media from. Any thread; does not block or throw.
class IInputEndpoint {
 public:
  virtual ~IInputEndpoint() = default;
  /// A file name or a URL.
  virtual std::string GetLocation() const = 0;
};

/// Where an engine writes media to. Any thread; does not block or throw.
class IOutputEndpoint {
 public:
  virtual ~IOutputEndpoint() = default;
  /// A file name or a URL.
  virtual std::string GetLocation() const = 0;
};

}  // namespace tamb
