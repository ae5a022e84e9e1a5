#pragma once

namespace tamb {

/// The kind of element that a factory makes.
enum class ElementFactoryType : int {
  Undefined = 0,
  /// Engines: a tuple of engine, command processor and notification hub front ends.
  Engine = 30,
};

}  // namespace tamb
