#pragma once

#include <functional>
#include <memory>
#include <string>

#include "tamb/IParametersCollection.h"

namespace google::protobuf {
class Message;
}

namespace qor::multiprocess_communication {

/// What comes between this program and the functions of the framework, the utilities and the standard library
/// that the list file tells the linker to wrap, while one of these lives. To be made, changed and destroyed
/// while no other thread calls them.
class WrappedCalls {
 public:
  WrappedCalls();
  ~WrappedCalls();
  WrappedCalls(const WrappedCalls&) = delete;
  WrappedCalls& operator=(const WrappedCalls&) = delete;

  /// Called ahead of every call of the framework, with the function's name, ahead of the start of every
  /// thread, as "std::thread", and ahead of the making of every socket, as "qor::socket::Socket"; what it
  /// throws is thrown in its place.
  std::function<void(const std::string& function)> before;
  /// What is made instead of an instance of the framework's.
  std::shared_ptr<tamb::IParametersCollectionInstance> instance;
  /// Called with the message after each receive that did not throw, on the receiver's thread. The receive
  /// throws what this throws, and leaves the message as it is.
  std::function<void(google::protobuf::Message& message)> afterReceive;
  /// How a formatter decorates a text, instead of as it does.
  std::function<std::string(const std::string& header, const std::string& text)> decorate;
};

}  // namespace qor::multiprocess_communication
