#pragma once

#include <string>

namespace tamb {

/// Where an engine reads media from.
class IInputEndpoint {
 public:
  virtual ~IInputEndpoint() = default;
  /// A file name or an URL.
  virtual std::string GetLocation() const = 0;
};

/// Where an engine writes media to.
class IOutputEndpoint {
 public:
  virtual ~IOutputEndpoint() = default;
  /// A file name or an URL.
  virtual std::string GetLocation() const = 0;
};

}  // namespace tamb
