#include "engines/sdk/StepNotifications.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <type_traits>

#include "engines/sdk/NotificationNames.h"
#include "runtime/base/Utf8.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tamb/LogContext.h"

namespace qor::engines {

namespace {

std::shared_ptr<const tamb::IParametersCollectionInstance> collection(const NotificationValues& values) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  for (const auto& [key, value] : values) {
    std::visit(
        [&, &name = key](const auto& held) {
          using Held = std::decay_t<decltype(held)>;
          if constexpr (std::is_same_v<Held, bool>) {
            prototype->AddBoolKey(name, held, "");
          } else if constexpr (std::is_same_v<Held, std::int64_t>) {
            prototype->AddInt64Key(name, held, "");
          } else if constexpr (std::is_same_v<Held, std::uint64_t>) {
            prototype->AddUint64Key(name, held, "");
          } else if constexpr (std::is_same_v<Held, double>) {
            prototype->AddDoubleKey(name, held, "");
          } else {
            prototype->AddUTF8StringKey(name, held, "");
          }
        },
        value);
  }
  return tamb::CreateParametersCollectionInstance(prototype);  // Its values are the defaults.
}

/// In bytes. A message contains each value twice, and has at most 65 536 bytes.
constexpr std::size_t longestText = 8'000;

std::string cut(const std::string& text) {
  const std::string_view shown = base::cutUtf8(text, longestText);
  return shown.size() == text.size() ? text : std::string(shown) + "...";
}

}  // namespace

tamb::MediaTime inMilliseconds(double seconds) {
  constexpr double limit = 9e15;  // A double is exact up to there.
  const double milliseconds = std::isnan(seconds) ? 0 : std::clamp(seconds * 1000, -limit, limit);
  return {tamb::EditRate(1000, 1), std::llround(milliseconds), nullptr};
}

StepNotifications::StepNotifications(std::shared_ptr<tamb::INotificationHubBackEnd> hub,
                                     NotificationOrigin origin,
                                     std::shared_ptr<std::atomic<bool>> failurePublished)
    : hub_(std::move(hub)), origin_(std::move(origin)), failurePublished_(std::move(failurePublished)) {}

void StepNotifications::publish(const std::string& line, double seconds,
                                const NotificationValues& values) const {
  push(compose(line, seconds, values, 0, false));
}

void StepNotifications::publishError(const std::string& line, double seconds,
                                     const NotificationValues& values) const {
  push(compose(line, seconds, values, 0, true));
}

void StepNotifications::publishBatch(
    std::vector<std::shared_ptr<const tamb::INotificationMessage>> batch) const {
  if (hub_) {
    hub_->PushNotifications(std::move(batch));
  }
}

void StepNotifications::commandDone(const tamb::ICommandMessage& command, double seconds) const {
  push(compose(names::commandDone, seconds,
               {{names::command, cut(command.GetCommandName())}, {names::reason, std::string()}},
               command.GetCommandId(), false));
}

void StepNotifications::commandFailed(const tamb::ICommandMessage& command, double seconds,
                                      const std::string& reason) const {
  push(compose(names::commandFailed, seconds,
               {{names::command, cut(command.GetCommandName())}, {names::reason, cut(reason)}},
               command.GetCommandId(), true));
}

std::shared_ptr<const tamb::INotificationMessage> StepNotifications::compose(const std::string& line,
                                                                             double seconds,
                                                                             const NotificationValues& values,
                                                                             unsigned int commandId,
                                                                             bool isAnError) const {
  return std::make_shared<tamb::NotificationMessage>(tamb::NotificationFields{
      .time = inMilliseconds(seconds),
      .stepId = origin_.stepId,
      .notificationLine = line,
      .notificationObject = collection(values),
      .notificationId = tamb::GetUUIDString(),
      .commandId = commandId,
      .workflowManagerId = origin_.workflowManagerId,
      .engineId = origin_.engineId,
      .isAnError = isAnError,
  });
}

void StepNotifications::push(std::shared_ptr<const tamb::INotificationMessage> notification) const {
  const bool isFailure = notification->GetNotificationLine() == names::failed;
  if (hub_) {
    hub_->PushNotification(std::move(notification));
  }
  if (isFailure && failurePublished_) {
    *failurePublished_ = true;
  }
}

}  // namespace qor::engines
