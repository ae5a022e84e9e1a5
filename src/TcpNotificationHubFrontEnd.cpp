#include "TcpNotificationHubFrontEnd.h"

#include <stdexcept>
#include <utility>

#include "tamb/LogContext.h"

namespace qor::multiprocess_communication {

namespace {

namespace ReportLine {
constexpr int subscribe = 85;
constexpr int subscribeToCommandResponse = 99;
constexpr int subscribeToStep = 113;
constexpr int setWorkflowManagerId = 123;
constexpr int setEngineId = 134;
constexpr int unsubscribe = 147;
constexpr int getWorkflowManagerId = 157;
constexpr int getEngineId = 169;
constexpr int invalidSocket = 200;
constexpr int invalidHubFrontEnd = 207;
constexpr int invalidHubBackEnd = 214;
constexpr int contextTermination = 230;
constexpr int pollError = 251;
constexpr int failedObject = 288;
constexpr int failedHandling = 306;
}  // namespace ReportLine

std::string invalidHub(const char* operation) {
  return std::string(operation) + ": Invalid notification hub front-end";
}

}  // namespace

TcpNotificationHubFrontEnd::TcpNotificationMessage::TcpNotificationMessage(
    const proto::NotificationMessage& message, std::string notificationId,
    std::shared_ptr<const tamb::IParametersCollectionInstance> notificationObject)
    : workflowManagerId_(message.workflowmanagerid()),
      engineId_(static_cast<unsigned int>(message.engineid())),
      time_(Serializers::MediaTimeFromProtoBuf(message.time())),
      stepId_(message.workflowstep()),
      notificationLine_(message.notificationline()),
      commandId_(static_cast<unsigned int>(message.commandid())),
      notificationId_(std::move(notificationId)),
      notificationObject_(std::move(notificationObject)) {}

const tamb::MediaTime& TcpNotificationHubFrontEnd::TcpNotificationMessage::GetTime() const { return time_; }
const std::string& TcpNotificationHubFrontEnd::TcpNotificationMessage::GetStepId() const { return stepId_; }
const std::string& TcpNotificationHubFrontEnd::TcpNotificationMessage::GetNotificationLine() const {
  return notificationLine_;
}
std::shared_ptr<const tamb::IParametersCollectionInstance>
TcpNotificationHubFrontEnd::TcpNotificationMessage::GetNotificationObject() const {
  return notificationObject_;
}
const std::string& TcpNotificationHubFrontEnd::TcpNotificationMessage::GetNotificationId() const {
  return notificationId_;
}
unsigned int TcpNotificationHubFrontEnd::TcpNotificationMessage::GetCommandId() const { return commandId_; }
const std::string& TcpNotificationHubFrontEnd::TcpNotificationMessage::GetWorkflowManagerId() const {
  return workflowManagerId_;
}
unsigned int TcpNotificationHubFrontEnd::TcpNotificationMessage::GetEngineId() const { return engineId_; }
bool TcpNotificationHubFrontEnd::TcpNotificationMessage::IsAnError() const { return false; }

TcpNotificationHubFrontEnd::TcpNotificationHubFrontEnd(
    std::shared_ptr<tamb::INotificationHubFrontEnd> hubFrontEnd,
    std::shared_ptr<tamb::INotificationHubBackEnd> hubBackEnd)
    : MessageFormatter("TcpNotificationHubFrontEnd"),
      hubFrontEnd_(std::move(hubFrontEnd)),
      hubBackEnd_(std::move(hubBackEnd)),
      socket_("TcpNotificationHubFrontEndNotification", socket::ClosePolicy::Patient) {}

TcpNotificationHubFrontEnd::~TcpNotificationHubFrontEnd() {
  stopRequest_ = true;
  joinReceptionThread();
}

void TcpNotificationHubFrontEnd::startSubscriptionThread(const socket::SocketEndpoint& endpoint) {
  stopRequest_ = true;
  // Ends the current poll. The current list is still handled; messages waiting in the socket are lost.
  socket_.close();
  joinReceptionThread();
  stopRequest_ = false;
  socket_.createAndConnect(socket::Protocol::Subscriber, endpoint, 0);
  try {
    receptionThread_ = std::make_shared<std::thread>([this] { receptionLoop(); });
  } catch (...) {
    // No thread could be started: nobody would receive the messages.
    socket_.close();
    throw;
  }
}

void TcpNotificationHubFrontEnd::joinReceptionThread() {
  if (receptionThread_) receptionThread_->join();
  // The next steps may fail, and the thread must not be joined twice.
  receptionThread_.reset();
}

std::shared_ptr<tamb::INotificationSubscriptionFrontEnd> TcpNotificationHubFrontEnd::Subscribe(
    std::shared_ptr<tamb::INotificationCallback> callback) {
  return localHub("Subscribe", ReportLine::subscribe).Subscribe(std::move(callback));
}

std::shared_ptr<tamb::INotificationSubscriptionFrontEnd>
TcpNotificationHubFrontEnd::SubscribeToCommandResponse(
    unsigned int engineId, unsigned int commandId, std::shared_ptr<tamb::INotificationCallback> callback) {
  return localHub("SubscribeToCommandResponse", ReportLine::subscribeToCommandResponse)
      .SubscribeToCommandResponse(engineId, commandId, std::move(callback));
}

std::shared_ptr<tamb::INotificationSubscriptionFrontEnd> TcpNotificationHubFrontEnd::SubscribeToStep(
    unsigned int engineId, const std::string& stepId, std::shared_ptr<tamb::INotificationCallback> callback) {
  return localHub("SubscribeToStep", ReportLine::subscribeToStep)
      .SubscribeToStep(engineId, stepId, std::move(callback));
}

void TcpNotificationHubFrontEnd::Unsubscribe(
    std::shared_ptr<tamb::INotificationSubscriptionFrontEnd> subscription) {
  localHub("Unsubscribe", ReportLine::unsubscribe).Unsubscribe(std::move(subscription));
}

void TcpNotificationHubFrontEnd::SetWorkflowManagerId(std::string id) {
  if (hasLocalHub("SetWorkflowManagerId", ReportLine::setWorkflowManagerId)) {
    hubFrontEnd_->SetWorkflowManagerId(std::move(id));
  }
}

void TcpNotificationHubFrontEnd::SetEngineId(unsigned int id) {
  if (hasLocalHub("SetEngineId", ReportLine::setEngineId)) hubFrontEnd_->SetEngineId(id);
}

std::string TcpNotificationHubFrontEnd::GetWorkflowManagerId() const {
  return hasLocalHub("GetWorkflowManagerId", ReportLine::getWorkflowManagerId)
             ? hubFrontEnd_->GetWorkflowManagerId()
             : std::string();
}

unsigned int TcpNotificationHubFrontEnd::GetEngineId() const {
  // The report names the other getter; only the line distinguishes the two.
  return hasLocalHub("GetWorkflowManagerId", ReportLine::getEngineId) ? hubFrontEnd_->GetEngineId() : 0;
}

tamb::INotificationHubFrontEnd& TcpNotificationHubFrontEnd::localHub(const char* operation, int line) const {
  checks().isNotNull(
      hubFrontEnd_, [operation] { return invalidHub(operation); }, line);
  return *hubFrontEnd_;
}

bool TcpNotificationHubFrontEnd::hasLocalHub(const char* operation, int line) const {
  if (!hubFrontEnd_) checks().log([operation] { return invalidHub(operation); }, line);
  return hubFrontEnd_ != nullptr;
}

void TcpNotificationHubFrontEnd::receptionLoop() {
  if (!socket_.isOpen()) {
    return checks().log("Cannot start reception loop, invalid socket: " + socket_.debugString(),
                        ReportLine::invalidSocket);
  }
  if (!hubFrontEnd_) {
    return checks().log("Cannot start reception loop, invalid notification hub front-end",
                        ReportLine::invalidHubFrontEnd);
  }
  if (!hubBackEnd_) {
    return checks().log("Cannot start reception loop, invalid notification hub back-end",
                        ReportLine::invalidHubBackEnd);
  }
  ListReceiver<proto::NotificationMessageList> receiver(socket_);
  receiver.run(
      stopRequest_, [&] { return receive(receiver); },
      [this](const proto::NotificationMessageList& list) { receptionLoopHandleNotificationList(list); });
}

/// False when reception must end. A failed receive does not end it; a poll that throws ends the process.
bool TcpNotificationHubFrontEnd::receive(ListReceiver<proto::NotificationMessageList>& receiver) {
  try {
    std::string errorText;
    const int polled = receiver.poll(errorText);
    if (polled == 0) {
      try {
        receiver.receive();
      } catch (const std::runtime_error& error) {
        // For example, the socket has just been closed for another endpoint.
        logFailedHandling(error);
      }
    }
    if (polled == 0 || polled == 1) return true;
    checks().log("Poll error in notification reception loop: " + errorText, ReportLine::pollError);
  } catch (const socket::ZmqContextTerminationException& termination) {
    checks().log(std::string("TCP notification hub: ") + termination.what(), ReportLine::contextTermination,
                 tamb::LogLevel::Info);
  }
  return false;
}

void TcpNotificationHubFrontEnd::receptionLoopHandleNotificationList(
    const proto::NotificationMessageList& list) {
  try {
    for (const proto::NotificationMessage& message : list.messages()) {
      auto object = objectOf(message);
      hubBackEnd_->PushNotification(
          std::make_shared<TcpNotificationMessage>(message, tamb::GetUUIDString(), std::move(object)));
    }
  } catch (const std::runtime_error& error) {
    logFailedHandling(error);
  }
}

void TcpNotificationHubFrontEnd::logFailedHandling(const std::runtime_error& error) const {
  checks().log(std::string("Error in notification reception handler: ") + error.what(),
               ReportLine::failedHandling);
}

std::shared_ptr<const tamb::IParametersCollectionInstance> TcpNotificationHubFrontEnd::objectOf(
    const proto::NotificationMessage& message) const {
  if (!message.has_notificationobject()) return nullptr;
  return Serializers::ReceivedParameters(
      message.notificationobject(), checks(),
      "Notification: failed serializing parameters collection: ", ReportLine::failedObject);
}

Checks TcpNotificationHubFrontEnd::checks() const { return Checks("src/TcpNotificationHubFrontEnd", this); }

}  // namespace qor::multiprocess_communication
