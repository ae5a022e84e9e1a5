#pragma once

#include <exception>
#include <string>
#include <utility>

namespace qor::socket {

/// The messaging context is being shut down: the order to end whatever loop meets it. Deliberately no
/// std::runtime_error, which means one failed operation.
class ZmqContextTerminationException : public std::exception {
 public:
  explicit ZmqContextTerminationException(std::string text) : text_(std::move(text)) {}
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  std::string text_;
};

}  // namespace qor::socket
