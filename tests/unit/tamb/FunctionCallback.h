#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "tamb/INotificationHub.h"

namespace tamb::test {

/// A subscriber that is a function.
class FunctionCallback : public INotificationCallback {
 public:
  using Function = std::function<void(const std::shared_ptr<const INotificationMessage>&)>;

  explicit FunctionCallback(Function function) : function_(std::move(function)) {}

  void OnNotification(std::shared_ptr<const INotificationMessage> notification) override {
    function_(notification);
  }

 private:
  Function function_;
};

inline std::shared_ptr<FunctionCallback> callback(FunctionCallback::Function function) {
  return std::make_shared<FunctionCallback>(std::move(function));
}

}  // namespace tamb::test
