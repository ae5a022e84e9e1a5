#pragma once

#include <string>

namespace tamb {

/// A source of media for an engine. Any thread; does not block or throw.
class IInputEndpoint {
 public:
  virtual ~IInputEndpoint() = default;
  /// A file name or a URL.
  virtual std::string GetLocation() const = 0;
};

/// A destination of media for an engine. Any thread; does not block or throw.
class IOutputEndpoint {
 public:
  virtual ~IOutputEndpoint() = default;
  /// A file name or a URL.
  virtual std::string GetLocation() const = 0;
};

}  // namespace tamb
