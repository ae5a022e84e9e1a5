#pragma once

#include <exception>
#include <string>
#include <utility>

namespace qor::socket {

/// The messaging context is being shut down; any loop that catches this has to end. Deliberately not a
/// std::runtime_error, which means that one operation failed.
class ZmqContextTerminationException : public std::exception {
 public:
  explicit ZmqContextTerminationException(std::string text) : text_(std::move(text)) {}
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  std::string text_;
};

}  // namespace qor::socket
