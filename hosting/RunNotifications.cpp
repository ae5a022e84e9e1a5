#include "hosting/RunNotifications.h"

#include <exception>
#include <utility>

#include "engines/sdk/NotificationNames.h"
#include "qor/utils/Log.h"
#include "runtime/console/OneLine.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tamb/LogContext.h"

namespace qor::hosting {

namespace {

namespace names = engines::names;

/// An engine may publish what it likes: the value may be missing, or be of another type.
std::string reasonIn(const tamb::INotificationMessage& notification) {
  try {
    const auto object = notification.GetNotificationObject();
    if (object && object->HasKey(names::reason)) return object->GetUTF8String(names::reason);
  } catch (const std::exception&) {
  }
  return "no reason was given";
}

bool isStopped(const tamb::INotificationMessage& notification) {
  try {
    const auto object = notification.GetNotificationObject();
    return object && object->HasKey(names::stopped) && object->GetBool(names::stopped);
  } catch (const std::exception&) {
    return false;
  }
}

std::optional<RunEnd> endIn(const tamb::INotificationMessage& notification) {
  const std::string& line = notification.GetNotificationLine();
  if (line == names::failed) return RunEnd{RunEnd::Kind::Failed, console::oneLine(reasonIn(notification))};
  if (line != names::finished) return std::nullopt;
  return RunEnd{.kind = isStopped(notification) ? RunEnd::Kind::Stopped : RunEnd::Kind::Finished};
}

bool hasReason(RunEnd::Kind kind) { return kind == RunEnd::Kind::Failed || kind == RunEnd::Kind::Died; }

const char* lineOf(RunEnd::Kind kind) {
  if (kind == RunEnd::Kind::Died) return names::engineDied;
  return kind == RunEnd::Kind::Failed ? names::failed : names::finished;
}

}  // namespace

std::shared_ptr<const tamb::INotificationMessage> notificationOf(const RunEnd& end,
                                                                 const std::string& workflowManagerId,
                                                                 unsigned int engineId) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  if (hasReason(end.kind)) {
    prototype->AddUTF8StringKey(names::reason, "", "");
  } else {
    prototype->AddBoolKey(names::stopped, false, "");
  }
  const auto object = tamb::CreateParametersCollectionInstance(prototype);
  if (hasReason(end.kind)) {
    object->SetUTF8String(names::reason, console::oneLine(end.reason));
  } else {
    object->SetBool(names::stopped, end.kind == RunEnd::Kind::Stopped);
  }
  return std::make_shared<tamb::NotificationMessage>(tamb::NotificationFields{
      .notificationLine = lineOf(end.kind),
      .notificationObject = object,
      .notificationId = tamb::GetUUIDString(),
      .workflowManagerId = workflowManagerId,
      .engineId = engineId,
      .isAnError = hasReason(end.kind),
  });
}

RunNotifications::RunNotifications(std::shared_ptr<tamb::INotificationHubBackEnd> hub,
                                   std::string workflowManagerId, unsigned int engineId)
    : hub_(std::move(hub)), workflowManagerId_(std::move(workflowManagerId)), engineId_(engineId) {}

void RunNotifications::PushNotifications(
    std::vector<std::shared_ptr<const tamb::INotificationMessage>> notifications) {
  std::optional<RunEnd> end;
  for (const auto& each : notifications) {
    if (each && !end) end = endIn(*each);
  }
  hub_->PushNotifications(std::move(notifications));
  const base::Lock lock(mutex_);
  if (!end_) end_ = end;
}

void RunNotifications::PushNotification(std::shared_ptr<const tamb::INotificationMessage> notification) {
  PushNotifications({std::move(notification)});
}

void RunNotifications::beginRun() {
  const base::Lock lock(mutex_);
  end_.reset();
}

void RunNotifications::publishFailure(const std::string& reason) {
  if (!published()) publish({RunEnd::Kind::Failed, reason});
}

RunEnd RunNotifications::endRun(const RunEnd& otherwise) {
  if (!published()) publish(otherwise);
  return published().value_or(otherwise);
}

void RunNotifications::publish(const RunEnd& end) {
  try {
    PushNotification(notificationOf(end, workflowManagerId_, engineId_));
  } catch (const std::exception& error) {
    utils::logError("Cannot publish that the run has " + std::string(nameOf(end.kind)) +
                    (end.reason.empty() ? "" : " (" + end.reason + ")") + ": " + error.what());
    const base::Lock lock(mutex_);
    if (!end_) end_ = end;
  }
}

std::optional<RunEnd> RunNotifications::published() const {
  const base::Lock lock(mutex_);
  return end_;
}

}  // namespace qor::hosting
