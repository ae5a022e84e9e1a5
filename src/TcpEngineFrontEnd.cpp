#include "TcpEngineFrontEnd.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>

#include "EngineReply.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::multiprocess_communication {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using socket::ZmqContextTerminationException;
using std::chrono::milliseconds;

constexpr const char* requestEndpointKey = "RemoteSideRequestEndpoint";
constexpr const char* statusEndpointKey = "RemoteSideStatusEndpoint";
constexpr const char* undefinedEndpoint = "endpoint_undef";

constexpr unsigned int connectMilliseconds = 30'000;
constexpr unsigned int statusSizeBound = 1'024;
constexpr unsigned int pollMilliseconds = 100;
constexpr milliseconds heartBeatPause{1'000};
/// The back end publishes its status at least once a second, and is patient with us for 10 s.
constexpr std::chrono::seconds longestSilence{15};
constexpr milliseconds timeToStartRunning{2'000};
/// How long one wait for another status goes on.
constexpr unsigned int statusSliceMilliseconds = 1'000;

void joinAndDrop(std::shared_ptr<std::thread>& thread) {
  if (thread) thread->join();
  thread.reset();
}

milliseconds roundedUp(IClock::TimePoint::duration time) { return std::chrono::ceil<milliseconds>(time); }

}  // namespace

TcpEngineFrontEnd::TcpEngineFrontEnd(std::shared_ptr<IClock> clock)
    : MessageFormatter("TcpEngineFrontEnd"),
      clock_(std::move(clock)),
      commandSocket_("TcpEngineFrontEndCommandSocket", socket::ClosePolicy::Patient) {}

TcpEngineFrontEnd::~TcpEngineFrontEnd() {
  try {
    sendRequestGetReply(Request::FrontEndTermination, 0);
  } catch (const std::exception& error) {
    checks().log(std::string("Failed sending termination request to backend: ") + error.what());
  }
  reset();
}

std::shared_ptr<const tamb::IParametersCollectionPrototype>
TcpEngineFrontEnd::GetParametersCollectionPrototype() {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey(requestEndpointKey, undefinedEndpoint, "");
  prototype->AddUTF8StringKey(statusEndpointKey, undefinedEndpoint, "");
  return prototype;
}

std::shared_ptr<const tamb::IParametersCollectionInstance> TcpEngineFrontEnd::GenerateConfig(
    const std::string& requestEndpoint, const std::string& statusEndpoint) {
  const auto config = tamb::CreateParametersCollectionInstance(GetParametersCollectionPrototype());
  config->SetUTF8String(requestEndpointKey, requestEndpoint);
  config->SetUTF8String(statusEndpointKey, statusEndpoint);
  return config;
}

std::shared_ptr<const tamb::IParametersCollectionInstance> TcpEngineFrontEnd::GenerateConfig(
    const SocketEndpoint& requestEndpoint, const SocketEndpoint& statusEndpoint) {
  return GenerateConfig(requestEndpoint.toString(socket::Protocol::Plain),
                        statusEndpoint.toString(socket::Protocol::Plain));
}

tamb::EngineStatus TcpEngineFrontEnd::GetStatus() const { return tamb::EngineStatus{0}; }

std::string TcpEngineFrontEnd::GetLastErrorMessage() const { return {}; }

tamb::TimeInfo TcpEngineFrontEnd::GetCurrentTimeInfo(const std::string& /*name*/) const {
  checks().never("Not serializable qor::multiprocess_communication::TcpEngineFrontEnd::GetCurrentTimeInfo");
}

void TcpEngineFrontEnd::SetInitConfig(std::shared_ptr<const tamb::IParametersCollectionInstance> config) {
  reset();
  checks().isNotNull(config, "SetInitConfig: no config");
  for (const char* const key : {requestEndpointKey, statusEndpointKey}) {
    checks().isTrue(config->HasKey(key), [key] { return std::string("Missing ") + key + " in config"; });
  }
  const auto requestEndpoint = SocketEndpoint::FromString(config->GetUTF8String(requestEndpointKey));
  {
    const std::lock_guard lock(requestMutex_);
    // It may be connected to the back end of an earlier configuration, and an open socket cannot be opened.
    commandSocket_.close();
    commandSocket_.createAndConnect(socket::Protocol::Requester, requestEndpoint, connectMilliseconds);
  }
  const auto statusEndpoint = SocketEndpoint::FromString(config->GetUTF8String(statusEndpointKey));
  stopStatusReception_ = false;
  stopHeartBeat_ = false;
  // What an earlier back end said last is nothing that this one has said.
  changeRemoteStatus(EngineStatus::Undefined);
  statusReceptionThread_ = std::make_shared<std::thread>(
      [this, statusEndpoint] { engineStatusReceptionThreadFunction(statusEndpoint); });
  heartBeatThread_ = std::make_shared<std::thread>([this] { heartBeatThreadFunction(); });
}

void TcpEngineFrontEnd::AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> /*description*/) {}
void TcpEngineFrontEnd::AddInputEndpoint(std::string /*name*/,
                                         std::shared_ptr<tamb::IInputEndpoint> /*endpoint*/) {}
void TcpEngineFrontEnd::AddOutputEndpoint(std::string /*name*/,
                                          std::shared_ptr<tamb::IOutputEndpoint> /*endpoint*/) {}
void TcpEngineFrontEnd::AddAllocator(std::string /*name*/,
                                     std::shared_ptr<tamb::IMemoryBlockAllocator> /*allocator*/) {}
void TcpEngineFrontEnd::AddClock(std::string /*name*/, std::shared_ptr<tamb::IMediaClock> /*clock*/) {}
void TcpEngineFrontEnd::AddLogger(std::string /*name*/, std::shared_ptr<tamb::ILogger> /*logger*/) {}
void TcpEngineFrontEnd::AddBenchmarker(std::string /*name*/, void* /*benchmarker*/) {}

void TcpEngineFrontEnd::Run() {
  try {
    sendRequestGetReply(Request::Run, 0);
  } catch (const std::exception& error) {
    return logFailedExchange("Failed sending ping to remote engine on:", error);
  }
  const auto deadline = clock_->now() + timeToStartRunning;
  EngineStatus::EngineStatus status = remoteEngineStatus_;
  for (auto now = clock_->now(); status != EngineStatus::Running && now < deadline; now = clock_->now()) {
    waitForEngineStatusChange(static_cast<unsigned int>(roundedUp(deadline - now).count()), status);
    status = remoteEngineStatus_;
  }
  checks().isTrue(status == EngineStatus::Running, "Run: Remote engine not switching to Running state");
  while (remoteEngineStatus_ == EngineStatus::Running) {
    waitForEngineStatusChange(statusSliceMilliseconds, EngineStatus::Running);
  }
}

void TcpEngineFrontEnd::Ping(unsigned int timeOutMilliseconds) {
  try {
    sendRequestGetReply(Request::Ping, timeOutMilliseconds);
  } catch (const std::exception& error) {
    logFailedExchange("Failed sending ping to remote engine on:", error);
  }
}

void TcpEngineFrontEnd::RequestStop() {
  try {
    sendRequestGetReply(Request::RequestStop, 0);
  } catch (const std::exception& error) {
    logFailedExchange("Failed sending request stop to remote engine on:", error);
  }
}

void TcpEngineFrontEnd::WaitForStop(unsigned int timeOutMilliseconds) {
  const auto start = clock_->now();
  std::uint32_t elapsed = 0;
  while (remoteEngineStatus_ == EngineStatus::Running && elapsed <= timeOutMilliseconds) {
    waitForEngineStatusChange(statusSliceMilliseconds, EngineStatus::Running);
    elapsed =
        static_cast<std::uint32_t>(std::chrono::duration_cast<milliseconds>(clock_->now() - start).count());
  }
  // The time alone decides: a stop seen in the slice that crossed the time-out is too late.
  checks().isAtMost(elapsed, timeOutMilliseconds, "WaitForStop: timeout");
}

void TcpEngineFrontEnd::SetWorkflowManagerId(std::string id) { workflowManagerId_ = std::move(id); }
void TcpEngineFrontEnd::SetEngineId(unsigned int id) { engineId_ = id; }
std::string TcpEngineFrontEnd::GetWorkflowManagerId() const { return workflowManagerId_; }
unsigned int TcpEngineFrontEnd::GetEngineId() const { return engineId_; }

void TcpEngineFrontEnd::SetNotificationHubBackEnd(std::shared_ptr<tamb::INotificationHubBackEnd> /*hub*/) {
  checks().log("SetNotificationHubBackEnd not usable");
}

std::string TcpEngineFrontEnd::sendRequestGetReply(proto::EngineFrontEndRequest_RequestType type,
                                                   unsigned int timeOutMilliseconds) {
  Request request;
  request.set_type(type);
  request.set_timeoutmilliseconds(timeOutMilliseconds);
  Reply reply;
  {
    const std::lock_guard lock(requestMutex_);
    commandSocket_.sendProtoBuf(&request);
    commandSocket_.receiveProtoBuf(&reply, engineReplySizeBound);
  }
  return resultOf(reply);
}

std::string TcpEngineFrontEnd::resultOf(const Reply& reply) const {
  // A reply that could not be read has no type. It must not pass for the enumeration's default.
  const int type = reply.has_type() ? static_cast<int>(reply.type()) : -1;
  if (type == Reply::Success) return reply.replystring();
  if (type == Reply::Failure) {
    checks().never(reply.has_errorstring() ? reply.errorstring() : "Command failure");
  }
  checks().never("Unexpected reply type: " + std::to_string(type));
}

bool TcpEngineFrontEnd::waitForEngineStatusChange(unsigned int milliseconds,
                                                  EngineStatus::EngineStatus seen) {
  std::unique_lock lock(statusMutex_);
  // A change that came since the caller looked has notified nobody.
  if (remoteEngineStatus_ != seen) return true;
  return clock_->waitUntil(statusChanged_, lock, clock_->now() + std::chrono::milliseconds(milliseconds));
}

void TcpEngineFrontEnd::reset() {
  stopStatusReception_ = true;
  {
    const std::lock_guard lock(heartBeatMutex_);
    stopHeartBeat_ = true;
    heartBeatStopped_.notify_all();
  }
  joinAndDrop(statusReceptionThread_);
  joinAndDrop(heartBeatThread_);
}

void TcpEngineFrontEnd::engineStatusReceptionThreadFunction(const SocketEndpoint& endpoint) {
  std::optional<Socket> opened;
  try {
    opened.emplace("TcpEngineFrontEndStatusReceptionSocket", socket::ClosePolicy::Newest);
    opened->createAndConnect(socket::Protocol::Subscriber, endpoint, 0);
  } catch (const ZmqContextTerminationException& termination) {
    return checks().log(std::string("Aborting status reception: ") + termination.what());
  } catch (const std::exception& error) {
    return checks().log(std::string("engineStatusReceptionThreadFunction: Failed creating socket: ") +
                        error.what());
  }
  Socket& socket = *opened;
  proto::EngineStatus message;
  auto lastHeard = clock_->steadyNow();
  while (!stopStatusReception_) {
    try {
      std::string errorText;
      const int polled = socket.poll(pollMilliseconds, errorText);
      if (polled == 0) {
        receiveStatus(socket, message);
        lastHeard = clock_->steadyNow();
      } else if (polled != 1) {
        checks().log("Poll error receiving backend status: " + errorText);
      }
      endSilence(lastHeard);
    } catch (const ZmqContextTerminationException& termination) {
      checks().log(std::string("Aborting status reception: ") + termination.what());
      // Nothing more will be heard: whoever waits for another status must not wait for ever.
      return changeRemoteStatus(EngineStatus::Undefined);
    } catch (const std::runtime_error& error) {
      checks().log(std::string("Failed receiving backend status request: ") + error.what());
    }
  }
}

void TcpEngineFrontEnd::receiveStatus(Socket& socket, proto::EngineStatus& message) {
  socket.receiveProtoBuf(&message, statusSizeBound);
  if (!message.has_status()) {
    return checks().log("engineStatusReceptionThreadFunction: unknown engine status received");
  }
  changeRemoteStatus(static_cast<EngineStatus::EngineStatus>(message.status()));
}

void TcpEngineFrontEnd::endSilence(IClock::SteadyTimePoint lastHeard) {
  const EngineStatus::EngineStatus status = remoteEngineStatus_;
  const bool isAlive = status == EngineStatus::Running || status == EngineStatus::Idle;
  if (!isAlive || clock_->steadyNow() - lastHeard < longestSilence) return;
  checks().log("engineStatusReceptionThreadFunction: no engine status received for " +
               std::to_string(longestSilence.count()) + " s, the backend is taken for gone");
  changeRemoteStatus(EngineStatus::Undefined);
}

void TcpEngineFrontEnd::changeRemoteStatus(EngineStatus::EngineStatus status) {
  if (remoteEngineStatus_.exchange(status) == status) return;
  const std::lock_guard lock(statusMutex_);
  statusChanged_.notify_all();
}

void TcpEngineFrontEnd::heartBeatThreadFunction() {
  while (!stopHeartBeat_) {
    try {
      sendRequestGetReply(Request::HeartBeat, 0);
    } catch (const ZmqContextTerminationException& termination) {
      checks().log(std::string("TcpEngineFrontEnd::heartBeatThreadFunction aborting: ") + termination.what());
      stopHeartBeat_ = true;
    } catch (const std::runtime_error& error) {
      checks().log(std::string("TcpEngineFrontEnd::heartBeatThreadFunction: failed sending heartbeat: ") +
                   error.what());
    }
    sleepUntilNextHeartBeat();
  }
}

void TcpEngineFrontEnd::sleepUntilNextHeartBeat() {
  std::unique_lock lock(heartBeatMutex_);
  // A controller must not fall silent because the time of day is set back.
  const auto end = clock_->commonEnd(clock_->steadyNow() + heartBeatPause);
  while (!stopHeartBeat_ && clock_->steadyNow() < end) clock_->waitUntil(heartBeatStopped_, lock, end);
}

void TcpEngineFrontEnd::logFailedExchange(const char* what, const std::exception& error) const {
  checks().log(what + commandSocket_.debugString() + ": " + error.what());
}

Checks TcpEngineFrontEnd::checks() const { return Checks("src/TcpEngineFrontEnd", this); }

}  // namespace qor::multiprocess_communication
