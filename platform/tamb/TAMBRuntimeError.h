#pragma once

#include <stdexcept>
#include <string>

namespace tamb {

/// The framework's exception: `what()` returns the message it was constructed from.
class TAMBRuntimeError : public std::runtime_error {
 public:
  explicit TAMBRuntimeError(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace tamb
