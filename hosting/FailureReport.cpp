#include "hosting/FailureReport.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "qor/utils/Log.h"
#include "runtime/console/OneLine.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tamb/LogContext.h"

namespace qor::hosting {

namespace {

constexpr const char* failureLine = "Failed";

std::string reasonOf(const tamb::INotificationMessage& notification) {
  try {
    const auto object = notification.GetNotificationObject();
    if (object && object->HasKey("reason")) return object->GetUTF8String("reason");
  } catch (const std::exception&) {
    // Of another type: an engine may say what it likes.
  }
  return "no reason was given";
}

}  // namespace

FailureReport::FailureReport(std::shared_ptr<tamb::INotificationHubBackEnd> hub,
                             std::string workflowManagerId, unsigned int engineId,
                             std::function<void(const std::string&)> onReported)
    : hub_(std::move(hub)),
      workflowManagerId_(std::move(workflowManagerId)),
      engineId_(engineId),
      onReported_(std::move(onReported)) {}

void FailureReport::PushNotifications(
    std::vector<std::shared_ptr<const tamb::INotificationMessage>> notifications) {
  const auto failure = std::ranges::find_if(
      notifications, [](const auto& each) { return each && each->GetNotificationLine() == failureLine; });
  const bool isFailure = failure != notifications.end();
  const std::string reason = isFailure && onReported_ ? reasonOf(**failure) : "";
  hub_->PushNotifications(std::move(notifications));
  if (isFailure && !isReported_.exchange(true) && onReported_) onReported_(reason);
}

void FailureReport::PushNotification(std::shared_ptr<const tamb::INotificationMessage> notification) {
  PushNotifications({std::move(notification)});
}

void FailureReport::report(const std::string& reason) {
  if (isReported_) return;
  try {
    const auto prototype = tamb::CreateParametersCollectionPrototype();
    prototype->AddUTF8StringKey("reason", "", "");
    const auto object = tamb::CreateParametersCollectionInstance(prototype);
    object->SetUTF8String("reason", console::oneLine(reason));
    PushNotification(std::make_shared<tamb::NotificationMessage>(tamb::NotificationFields{
        .notificationLine = failureLine,
        .notificationObject = object,
        .notificationId = tamb::GetUUIDString(),
        .workflowManagerId = workflowManagerId_,
        .engineId = engineId_,
        .isAnError = true,
    }));
  } catch (const std::exception& error) {
    utils::logError("The run has failed (" + reason + "), which cannot be published: " + error.what());
  }
}

}  // namespace qor::hosting
