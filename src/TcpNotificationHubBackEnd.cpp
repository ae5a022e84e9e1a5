#include "TcpNotificationHubBackEnd.h"

#include <stdexcept>
#include <utility>

namespace qor::multiprocess_communication {

namespace {

namespace ReportLine {
constexpr int failedCreatingSocket = 22;
constexpr int socketNotInitialized = 42;
constexpr int nullNotification = 55;
constexpr int badWorkflowManagerId = 62;
constexpr int badEngineId = 69;
}  // namespace ReportLine

}  // namespace

// Engine processes are built against this signature.
// NOLINTNEXTLINE(modernize-pass-by-value)
TcpNotificationHubBackEnd::TcpNotificationHubBackEnd(const std::string& workflowManagerId,
                                                     unsigned long engineId,
                                                     const socket::SocketEndpoint& endpoint)
    : MessageFormatter("TcpNotificationHubBackEnd on " + endpoint.toString(socket::Protocol::Publisher)),
      workflowManagerId_(workflowManagerId),
      engineId_(engineId),
      socket_("TcpNotificationHubRequest", socket::ClosePolicy::Patient) {
  try {
    socket_.createAndConnect(socket::Protocol::Publisher, endpoint, 0);
  } catch (const std::runtime_error& error) {
    checks().log(std::string("Failed creating socket: ") + error.what(), ReportLine::failedCreatingSocket);
  }
}

TcpNotificationHubBackEnd::~TcpNotificationHubBackEnd() = default;

void TcpNotificationHubBackEnd::PushNotifications(
    std::vector<std::shared_ptr<const tamb::INotificationMessage>> notifications) {
  checks().isTrue(socket_.isOpen(), "Socket not initialized", ReportLine::socketNotInitialized);
  sender_.send(socket_, notifications,
               [this](const auto& notification, auto& list) { add(notification, list); });
}

void TcpNotificationHubBackEnd::add(const std::shared_ptr<const tamb::INotificationMessage>& notification,
                                    proto::NotificationMessageList& list) const {
  checks().isNotNull(notification, "NULL notification passed to the notification hub",
                     ReportLine::nullNotification);
  checks().isTrue(notification->GetWorkflowManagerId() == workflowManagerId_,
                  "Bad workflow manager id in notification", ReportLine::badWorkflowManagerId);
  checks().isTrue(notification->GetEngineId() == engineId_, "Bad engine id in notification",
                  ReportLine::badEngineId);
  write(*notification, *list.add_messages());
}

void TcpNotificationHubBackEnd::write(const tamb::INotificationMessage& notification,
                                      proto::NotificationMessage& message) {
  Serializers::MediaTimeToProtoBuf(notification.GetTime(), *message.mutable_time());
  message.set_workflowstep(notification.GetStepId());
  message.set_notificationline(notification.GetNotificationLine());
  message.set_id(notification.GetNotificationId());
  message.set_commandid(notification.GetCommandId());
  message.set_workflowmanagerid(notification.GetWorkflowManagerId());
  message.set_engineid(notification.GetEngineId());
  if (notification.GetNotificationObject()) {
    Serializers::ParametersCollectionInstanceToProtoBuf(notification.GetNotificationObject(),
                                                        *message.mutable_notificationobject());
  }
}

void TcpNotificationHubBackEnd::PushNotification(
    std::shared_ptr<const tamb::INotificationMessage> notification) {
  PushNotifications({std::move(notification)});
}

Checks TcpNotificationHubBackEnd::checks() const { return Checks("src/TcpNotificationHubBackEnd", this); }

}  // namespace qor::multiprocess_communication
