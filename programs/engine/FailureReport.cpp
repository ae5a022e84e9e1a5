#include "programs/engine/FailureReport.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "programs/support/OneLine.h"
#include "qor/utils/Log.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tamb/LogContext.h"

namespace qor::programs {

namespace {

constexpr const char* failureLine = "Failed";

}  // namespace

FailureReport::FailureReport(std::shared_ptr<tamb::INotificationHubBackEnd> hub,
                             std::string workflowManagerId, unsigned int engineId)
    : hub_(std::move(hub)), workflowManagerId_(std::move(workflowManagerId)), engineId_(engineId) {}

void FailureReport::PushNotifications(
    std::vector<std::shared_ptr<const tamb::INotificationMessage>> notifications) {
  const bool isFailure = std::ranges::any_of(
      notifications, [](const auto& each) { return each && each->GetNotificationLine() == failureLine; });
  hub_->PushNotifications(std::move(notifications));
  if (isFailure) isReported_ = true;
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
    object->SetUTF8String("reason", oneLine(reason));
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

}  // namespace qor::programs
