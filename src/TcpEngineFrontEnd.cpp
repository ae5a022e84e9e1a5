#include "TcpEngineFrontEnd.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>

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
/// The back end publishes its status at least once a second, and gives up its controller after 10 s.
constexpr std::chrono::seconds longestSilence{15};
/// A process that was stopped sees the time passed before it sees the messages that arrived meanwhile.
constexpr unsigned int pollsBeforeSilence = 3;
constexpr milliseconds timeToStartRunning{2'000};
/// A publisher without a subscriber keeps only the newest status. A run that is requested and over before the
/// status socket connects, for the first time or after a lost connection, would go unnoticed. A back end
/// publishes its status at least that often.
constexpr milliseconds timeForStatus{1'000};
/// When the last status is older, the next one is overdue.
constexpr milliseconds oldestStatus = timeForStatus + milliseconds(100);
/// How long one wait for a change of status lasts.
constexpr milliseconds statusSlice{1'000};

void joinAndDrop(std::shared_ptr<std::thread>& thread) {
  if (thread) thread->join();
  thread.reset();
}

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
    const Lock lock(requestMutex_);
    // It may be connected to the back end of an earlier configuration, and an open socket cannot be opened.
    commandSocket_.close();
    commandSocket_.createAndConnect(socket::Protocol::Requester, requestEndpoint, connectMilliseconds);
    // A run that was about to be requested from the previous peer must not be requested from this one.
    changeConfiguration();
  }
  const auto statusEndpoint = SocketEndpoint::FromString(config->GetUTF8String(statusEndpointKey));
  stopStatusReception_ = false;
  stopHeartBeat_ = false;
  changeReception(true);
  statusReceptionThread_ = std::make_shared<std::thread>(
      [this, statusEndpoint] { engineStatusReceptionThreadFunction(statusEndpoint); });
  heartBeatThread_ = std::make_shared<std::thread>([this] { heartBeatThreadFunction(); });
  waitForRecentStatus(configuration());
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
  RequestedRun run{};
  try {
    run = requestRun();
  } catch (const std::exception& error) {
    return logFailedExchange("Failed sending ping to remote engine on:", error);
  }
  checks().isTrue(waitForRun(clock_->now() + timeToStartRunning, run),
                  "Run: Remote engine not switching to Running state");
  waitForRunEnd(run);
}

void TcpEngineFrontEnd::Ping(unsigned int timeOutMilliseconds) {
  try {
    sendRequestGetReply(Request::Ping, timeOutMilliseconds);
  } catch (const std::exception& error) {
    logFailedExchange("Failed sending ping to remote engine on:", error);
  }
}

void TcpEngineFrontEnd::RequestStop() {
  // A stop that is sent before the run, while Run waits for a status, would stop nothing.
  const Lock order(runRequestMutex_);
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
    waitForEngineStatusChange(clock_->now() + statusSlice, EngineStatus::Running);
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
  Lock lock(requestMutex_);
  const Reply reply = exchange(type, timeOutMilliseconds);
  lock.unlock();
  return resultOf(reply);
}

TcpEngineFrontEnd::Reply TcpEngineFrontEnd::exchange(proto::EngineFrontEndRequest_RequestType type,
                                                     unsigned int timeOutMilliseconds) {
  Request request;
  request.set_type(type);
  request.set_timeoutmilliseconds(timeOutMilliseconds);
  Reply reply;
  commandSocket_.sendProtoBuf(&request);
  commandSocket_.receiveProtoBuf(&reply, engineReplySizeBound);
  // The process that takes over the endpoints of a dead back end answers every request with a failure.
  if (reply.has_type() && reply.type() == Reply::Success) noteLife();
  return reply;
}

TcpEngineFrontEnd::RequestedRun TcpEngineFrontEnd::requestRun() {
  RequestedRun run{.configuration = configuration(), .runsBefore = 0};
  const Lock order(runRequestMutex_);
  waitForRecentStatus(run.configuration);
  Lock lock(requestMutex_);
  {
    const Lock statusLock(statusMutex_);
    if (configuration_ != run.configuration) {
      throw std::runtime_error("another configuration was set before the run was requested");
    }
    // The status may change twice before the reply arrives.
    run.runsBefore = runsSeen_;
  }
  const Reply reply = exchange(Request::Run, 0);
  lock.unlock();
  resultOf(reply);
  return run;
}

std::string TcpEngineFrontEnd::resultOf(const Reply& reply) const {
  // An unreadable reply has no type. It must not be taken for the enumeration's default.
  const int type = reply.has_type() ? static_cast<int>(reply.type()) : -1;
  if (type == Reply::Success) return reply.replystring();
  if (type == Reply::Failure) {
    checks().never(reply.has_errorstring() ? reply.errorstring() : "Command failure");
  }
  checks().never("Unexpected reply type: " + std::to_string(type));
}

bool TcpEngineFrontEnd::waitForEngineStatusChange(IClock::TimePoint deadline,
                                                  EngineStatus::EngineStatus seen) {
  Lock lock(statusMutex_);
  // A change that came since the caller looked has notified nobody.
  if (remoteEngineStatus_ != seen) return true;
  return clock_->waitUntil(statusChanged_, lock.forWaiting(), deadline);
}

void TcpEngineFrontEnd::waitForRecentStatus(unsigned int configuration) {
  Lock lock(statusMutex_);
  const auto isRecent = [&]() MULTIPROCESS_REQUIRES(statusMutex_) {
    return lastStatus_ && clock_->steadyNow() - *lastStatus_ <= oldestStatus;
  };
  const auto deadline = clock_->steadyNow() + timeForStatus;
  while (isReceiving_ && configuration_ == configuration && !isRecent() && clock_->steadyNow() < deadline) {
    clock_->waitUntil(receptionChanged_, lock.forWaiting(), deadline);
  }
}

bool TcpEngineFrontEnd::waitForRun(IClock::TimePoint deadline, const RequestedRun& run) {
  Lock lock(statusMutex_);
  const auto isOver = [&]() MULTIPROCESS_REQUIRES(statusMutex_) {
    return remoteEngineStatus_ == EngineStatus::Running || runsSeen_ != run.runsBefore ||
           configuration_ != run.configuration;
  };
  while (!isOver() && clock_->now() < deadline)
    clock_->waitUntil(statusChanged_, lock.forWaiting(), deadline);
  return isOver();
}

void TcpEngineFrontEnd::waitForRunEnd(const RequestedRun& run) {
  Lock lock(statusMutex_);
  while (remoteEngineStatus_ == EngineStatus::Running && configuration_ == run.configuration) {
    clock_->waitUntil(statusChanged_, lock.forWaiting(), clock_->commonEnd(clock_->now() + statusSlice));
  }
}

void TcpEngineFrontEnd::reset() {
  changeConfiguration();
  stopStatusReception_ = true;
  {
    const Lock lock(heartBeatMutex_);
    stopHeartBeat_ = true;
    heartBeatStopped_.notify_all();
  }
  joinAndDrop(statusReceptionThread_);
  joinAndDrop(heartBeatThread_);
  // No thread follows the engine any more: no caller may wait for another status for ever.
  changeReception(false);
  changeRemoteStatus(EngineStatus::Undefined);
}

void TcpEngineFrontEnd::changeConfiguration() {
  const Lock lock(statusMutex_);
  ++configuration_;
  statusChanged_.notify_all();
  receptionChanged_.notify_all();
}

unsigned int TcpEngineFrontEnd::configuration() {
  const Lock lock(statusMutex_);
  return configuration_;
}

void TcpEngineFrontEnd::engineStatusReceptionThreadFunction(const SocketEndpoint& endpoint) {
  try {
    std::optional<Socket> socket;
    openStatusSocket(socket, endpoint);
    if (socket) receiveStatuses(*socket);
  } catch (const ZmqContextTerminationException& termination) {
    checks().log(std::string("Aborting status reception: ") + termination.what());
  }
  // No more statuses are received: no caller may wait for another one for ever.
  changeReception(false);
  changeRemoteStatus(EngineStatus::Undefined);
}

void TcpEngineFrontEnd::openStatusSocket(std::optional<Socket>& socket,
                                         const SocketEndpoint& endpoint) const {
  try {
    socket.emplace("TcpEngineFrontEndStatusReceptionSocket", socket::ClosePolicy::Newest);
    socket->createAndConnect(socket::Protocol::Subscriber, endpoint, 0);
  } catch (const ZmqContextTerminationException&) {
    throw;
  } catch (const std::exception& error) {
    checks().log(std::string("engineStatusReceptionThreadFunction: Failed creating socket: ") + error.what());
    socket.reset();
  }
}

void TcpEngineFrontEnd::receiveStatuses(Socket& socket) {
  noteLife();
  pollsInVain_ = 0;
  isDeaf_ = false;
  proto::EngineStatus message;
  while (!stopStatusReception_) {
    Polled polled = Polled::Failure;
    try {
      polled = pollStatus(socket, message);
    } catch (const ZmqContextTerminationException&) {
      throw;
    } catch (const std::runtime_error& error) {
      checks().log(std::string("Failed receiving backend status request: ") + error.what());
    }
    if (polled == Polled::Failure) isDeaf_ = true;
    if (polled != Polled::Status) endSilence();
    // A poll that fails at once must not be repeated more often than one that waits.
    if (polled == Polled::Failure) std::this_thread::sleep_for(milliseconds(pollMilliseconds));
  }
}

TcpEngineFrontEnd::Polled TcpEngineFrontEnd::pollStatus(Socket& socket, proto::EngineStatus& message) {
  std::string errorText;
  const int polled = socket.poll(pollMilliseconds, errorText);
  if (polled == 1) return Polled::Nothing;
  if (polled != 0) {
    checks().log("Poll error receiving backend status: " + errorText);
    return Polled::Failure;
  }
  socket.receiveProtoBuf(&message, statusSizeBound);
  if (!message.has_status()) {
    checks().log("engineStatusReceptionThreadFunction: unknown engine status received");
    return Polled::Nothing;
  }
  pollsInVain_ = 0;
  isDeaf_ = false;
  changeRemoteStatus(static_cast<EngineStatus::EngineStatus>(message.status()));
  noteStatus();
  return Polled::Status;
}

void TcpEngineFrontEnd::noteLife() {
  const Lock lock(statusMutex_);
  lastSign_ = clock_->steadyNow();
}

void TcpEngineFrontEnd::noteStatus() {
  const Lock lock(statusMutex_);
  lastSign_ = clock_->steadyNow();
  lastStatus_ = lastSign_;
  receptionChanged_.notify_all();
}

void TcpEngineFrontEnd::endSilence() {
  const EngineStatus::EngineStatus status = remoteEngineStatus_;
  const bool isAlive = status == EngineStatus::Running || status == EngineStatus::Idle;
  // Even with a living back end, the end of the run goes unnoticed while statuses cannot be received.
  const auto lastSign = [&] {
    const Lock lock(statusMutex_);
    return isDeaf_ ? lastStatus_.value_or(lastSign_) : lastSign_;
  }();
  if (!isAlive || clock_->steadyNow() - lastSign < longestSilence) {
    pollsInVain_ = 0;
    return;
  }
  if (++pollsInVain_ < pollsBeforeSilence) return;
  checks().log(std::string("engineStatusReceptionThreadFunction: ") +
               (isDeaf_ ? "no engine status could be received for "
                        : "no engine status and no successful reply received for ") +
               std::to_string(longestSilence.count()) + " s, the backend is taken for gone");
  changeRemoteStatus(EngineStatus::Undefined);
}

void TcpEngineFrontEnd::changeReception(bool isUnderWay) {
  const Lock lock(statusMutex_);
  isReceiving_ = isUnderWay;
  lastStatus_.reset();
  receptionChanged_.notify_all();
}

void TcpEngineFrontEnd::changeRemoteStatus(EngineStatus::EngineStatus status) {
  if (remoteEngineStatus_.exchange(status) == status) return;
  const Lock lock(statusMutex_);
  if (status == EngineStatus::Running) ++runsSeen_;
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
  Lock lock(heartBeatMutex_);
  // Setting the time of day back must not delay a heartbeat.
  const auto end = clock_->commonEnd(clock_->steadyNow() + heartBeatPause);
  while (!stopHeartBeat_ && clock_->steadyNow() < end)
    clock_->waitUntil(heartBeatStopped_, lock.forWaiting(), end);
}

void TcpEngineFrontEnd::logFailedExchange(const char* what, const std::exception& error) const {
  checks().log(what + commandSocket_.debugString() + ": " + error.what());
}

Checks TcpEngineFrontEnd::checks() const { return Checks("src/TcpEngineFrontEnd", this); }

}  // namespace qor::multiprocess_communication
