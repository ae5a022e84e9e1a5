#include "TcpEngineBackEnd.h"

#include <chrono>
#include <cstddef>
#include <exception>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "qor/utils/Log.h"
#include "tamb/LogContext.h"

namespace qor::multiprocess_communication {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using socket::ZmqContextTerminationException;
using utils::logDebug;
using utils::logError;
using utils::logInfo;
using utils::logWarning;

constexpr unsigned int pollMilliseconds = 100;
constexpr unsigned int requestSizeBound = 65'536;
constexpr unsigned int statusPeriodMilliseconds = 1'000;
/// How long a change of status waits for the publication of the previous one. That takes less than a
/// millisecond, unless the socket cannot send.
constexpr std::chrono::milliseconds longestPublication{1'000};
/// A guard only: without an engine no request is ever received.
constexpr const char* noEngine = "No engine";
/// The front end sends a heartbeat about every second.
constexpr std::chrono::milliseconds frontEndSilence{10'000};

proto::EngineStatus_Status wireStatus(EngineStatus::EngineStatus status) {
  switch (status) {
    case EngineStatus::Running:
      return proto::EngineStatus::Running;
    case EngineStatus::Idle:
      return proto::EngineStatus::Idle;
    case EngineStatus::EndOfLife:
      return proto::EngineStatus::EndOfLife;
    case EngineStatus::Undefined:  // is never published: publication begins with another status
      break;
  }
  return proto::EngineStatus::Undefined;
}

void logChangeTo(EngineStatus::EngineStatus status) {
  logDebug("TcpEngineBackEnd: Engine status change: " + EngineStatus::ToString(status));
}

/// Every byte of a UTF-8 character except its first begins with the bits 10.
bool beginsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; }

/// The beginning of the text that fits into `longest` bytes, at least five.
std::string cut(const std::string& text, std::size_t longest) {
  if (text.size() <= longest) return text;
  // Cuts between two characters, which have at most four bytes each. Bytes that are not UTF-8 are cut at the
  // bound.
  for (std::size_t end = longest; end + 4 > longest; --end) {
    if (beginsCharacter(text[end])) return text.substr(0, end);
  }
  return text.substr(0, longest);
}

/// Sets the error text of a reply whose other fields are set, cut to the bound of a reply: a cut reason is
/// better than a lost one.
void setErrorText(proto::EngineBackEndReply& reply, const std::string& text) {
  reply.set_errorstring("");
  // The length of an empty text is one byte of the encoding already, and that of one that has to be cut two.
  reply.set_errorstring(cut(text, engineReplySizeBound - reply.ByteSizeLong() - 1));
}

void joinIfPresent(const std::shared_ptr<std::thread>& thread) {
  if (thread) thread->join();
}

}  // namespace

TcpEngineBackEnd::TcpEngineBackEnd(std::shared_ptr<tamb::IEngineFrontEnd> engine,
                                   const SocketEndpoint& requestEndpoint,
                                   const SocketEndpoint& statusEndpoint)
    : TcpEngineBackEnd(std::move(engine), requestEndpoint, statusEndpoint, SystemClock()) {}

TcpEngineBackEnd::TcpEngineBackEnd(std::shared_ptr<tamb::IEngineFrontEnd> engine,
                                   const SocketEndpoint& requestEndpoint,
                                   const SocketEndpoint& statusEndpoint, std::shared_ptr<IClock> clock)
    : MessageFormatter("TcpEngineBackEnd"), clock_(std::move(clock)), engine_(std::move(engine)) {
  startThreads(requestEndpoint, statusEndpoint);
}

TcpEngineBackEnd::TcpEngineBackEnd(EngineDeath death, const SocketEndpoint& requestEndpoint,
                                   const SocketEndpoint& statusEndpoint, std::shared_ptr<IClock> clock)
    : MessageFormatter("TcpEngineBackEnd"), clock_(std::move(clock)), death_(std::move(death)) {
  startThreads(requestEndpoint, statusEndpoint);
}

void TcpEngineBackEnd::startThreads(const SocketEndpoint& requestEndpoint,
                                    const SocketEndpoint& statusEndpoint) {
  statusPublicationThread_ = std::make_shared<std::thread>(
      [this, statusEndpoint] { engineStatusPublicationThreadFunction(statusEndpoint); });
  try {
    commandReceptionThread_ = std::make_shared<std::thread>(
        [this, requestEndpoint] { commandReceptionThreadFunction(requestEndpoint); });
  } catch (...) {
    stop();
    throw;
  }
}

TcpEngineBackEnd::~TcpEngineBackEnd() { stop(); }

void TcpEngineBackEnd::stop() {
  changeEngineStatus(EngineStatus::EndOfLife);
  std::shared_ptr<std::thread> engineRunThread;
  {
    const Lock lock(engineRunMutex_);
    stopCommandReception_ = true;
    engineRunThread = engineRunThread_;
  }
  {
    const Lock lock(statusMutex_);
    stopStatusPublication_ = true;
    // The thread may have published EndOfLife before it could see the stop flag.
    statusChanged_.notify_all();
  }
  joinIfPresent(engineRunThread);
  joinIfPresent(statusPublicationThread_);
  joinIfPresent(commandReceptionThread_);
}

void TcpEngineBackEnd::waitForFrontEndTermination() {
  Lock lock(frontEndMutex_);
  while (!frontEndTerminated_) {
    const auto deadline = clock_->now() + frontEndSilence;
    clock_->waitUntil(frontEndActivity_, lock.forWaiting(), deadline);
    if (clock_->now() >= deadline) {
      lock.unlock();
      logWarning(formatMessage("Engine backend left because of timeout on frontend heartbeat"));
      return;
    }
  }
}

void TcpEngineBackEnd::changeEngineStatus(EngineStatus::EngineStatus status) {
  // Two concurrent changes would both find the previous one published, and the later would hide the earlier.
  const Lock change(statusChangeMutex_);
  {
    Lock lock(statusMutex_);
    const auto deadline = clock_->steadyNow() + longestPublication;
    while (publishedChanges_ != statusChanges_ && !isPublicationOver_ && !stopStatusPublication_ &&
           clock_->steadyNow() < deadline) {
      clock_->waitUntil(statusPublished_, lock.forWaiting(), deadline);
    }
  }
  logChangeTo(status);
  const Lock lock(statusMutex_);
  engineStatus_ = status;
  ++statusChanges_;
  statusChanged_.notify_all();
}

bool TcpEngineBackEnd::waitForEngineStatusChange(unsigned int milliseconds) {
  Lock lock(statusMutex_);
  // A change that came while the last status was being sent has notified nobody.
  if (stopStatusPublication_ || sentChanges_ != statusChanges_) return true;
  const auto deadline = clock_->now() + std::chrono::milliseconds(milliseconds);
  return clock_->waitUntil(statusChanged_, lock.forWaiting(), clock_->commonEnd(deadline));
}

void TcpEngineBackEnd::engineRunThreadFunction() {
  changeEngineStatus(EngineStatus::Running);
  try {
    engine_->Run();
  } catch (const std::runtime_error& error) {
    logError(formatMessage(std::string("TcpEngineBackEnd::engineRunThreadFunction failed running engine: ") +
                           error.what()));
  }
  changeEngineStatus(EngineStatus::Idle);
}

void TcpEngineBackEnd::sendReply(Socket& socket, proto::EngineBackEndReply_ReplyType type,
                                 const std::string& replyString, const std::string& errorString) {
  reply_.set_type(type);
  reply_.set_replystring(replyString);
  setErrorText(reply_, errorString);
  try {
    socket.sendProtoBuf(&reply_);
  } catch (const ZmqContextTerminationException&) {
    throw;
  } catch (const std::runtime_error& error) {
    logError(formatMessage(std::string("Engine reply sending failed: ") + error.what()));
  }
}

void TcpEngineBackEnd::dispatch(Socket& socket, const Request& request) {
  const bool isTermination = request.has_type() && request.type() == Request::FrontEndTermination;
  if (death_ && !isTermination) return sendReply(socket, Reply::Failure, "", death_->cause);
  // An unreadable request has no type. It must not be taken for the enumeration's default, which runs the
  // engine.
  if (!request.has_type()) return handleRequestError(socket);
  switch (request.type()) {
    case Request::Run:
      return handleRunRequest(socket);
    case Request::Ping:
      return handlePingRequest(socket, request.timeoutmilliseconds());
    case Request::RequestStart:
      return;  // gets no reply
    case Request::RequestStop:
      return handleRequestStopRequest(socket);
    case Request::FrontEndTermination:
      return handleFrontEndTerminationRequest(socket);
    case Request::HeartBeat:
      return handleHeartBeatRequest(socket);
    case Request::WaitForStop:  // the front end waits by itself
      break;
  }
  handleRequestError(socket);
}

void TcpEngineBackEnd::handleRunRequest(Socket& socket) {
  std::string failure;
  try {
    failure = startEngineRun();
  } catch (const std::system_error& error) {
    failure = error.what();  // no thread could be started
  }
  if (!failure.empty()) return sendReply(socket, Reply::Failure, "", formatMessage(failure));
  sendReply(socket, Reply::Success, "", "");
}

std::string TcpEngineBackEnd::startEngineRun() {
  if (!engine_) return noEngine;
  const Lock lock(engineRunMutex_);
  if (engineRunThread_) return "An engine run thread already exists";
  // The destructor may have looked for a run thread to join already.
  if (stopCommandReception_) return "Request error";
  engineRunThread_ = std::make_shared<std::thread>([this] { engineRunThreadFunction(); });
  return {};
}

template <class Call>
void TcpEngineBackEnd::replyToEngineCall(Socket& socket, const Call& call) {
  if (!engine_) return sendReply(socket, Reply::Failure, "", formatMessage(noEngine));
  try {
    call(*engine_);
  } catch (const std::exception& error) {
    return sendReply(socket, Reply::Failure, "", error.what());
  } catch (...) {
    return sendReply(socket, Reply::Failure, "", formatMessage("Unknown failure"));
  }
  sendReply(socket, Reply::Success, "", "");
}

void TcpEngineBackEnd::handlePingRequest(Socket& socket, unsigned int timeOutMilliseconds) {
  replyToEngineCall(socket, [&](tamb::IEngineFrontEnd& engine) { engine.Ping(timeOutMilliseconds); });
}

void TcpEngineBackEnd::handleRequestStopRequest(Socket& socket) {
  replyToEngineCall(socket, [](tamb::IEngineFrontEnd& engine) { engine.RequestStop(); });
}

void TcpEngineBackEnd::handleFrontEndTerminationRequest(Socket& socket) {
  try {
    sendReply(socket, Reply::Success, "", "");
  } catch (const ZmqContextTerminationException&) {
    // The front end has disconnected all the same: nobody has to wait for its silence.
    noteFrontEndTermination();
    throw;
  }
  noteFrontEndTermination();
}

void TcpEngineBackEnd::endWaitForFrontEndTermination() { noteFrontEndTermination(); }

void TcpEngineBackEnd::noteFrontEndTermination() {
  const Lock lock(frontEndMutex_);
  frontEndTerminated_ = true;
  frontEndActivity_.notify_all();
}

void TcpEngineBackEnd::handleHeartBeatRequest(Socket& socket) { sendReply(socket, Reply::Success, "", ""); }

void TcpEngineBackEnd::handleRequestError(Socket& socket) {
  sendReply(socket, Reply::Failure, "", formatMessage("Request error"));
}

void TcpEngineBackEnd::commandReceptionThreadFunction(const SocketEndpoint& endpoint) {
  std::optional<Socket> socket;
  try {
    socket.emplace("TcpEngineBackEndCommandListenSocket", socket::ClosePolicy::Patient);
    socket->createAndConnect(socket::Protocol::Replier, endpoint, 0);
  } catch (const ZmqContextTerminationException& termination) {
    return logInfo(formatMessage(termination.what()));
  } catch (const std::exception& error) {
    return logError(
        formatMessage(std::string("commandListenThreadFunction: failed binding socket: ") + error.what()));
  }
  if (!isServing()) return logError("commandListenThreadFunction: Invalid engine, cannot proceed");
  if (engine_) defineLogContext();
  try {
    receptionLoop(*socket);
  } catch (const ZmqContextTerminationException& termination) {
    logInfo(formatMessage(termination.what()));
  }
}

void TcpEngineBackEnd::defineLogContext() const {
  try {
    tamb::DefineContextEngine_deprecated(engine_->GetWorkflowManagerId(), engine_->GetEngineId(), nullptr, {},
                                         {}, {}, {}, {});
  } catch (const std::exception& error) {
    // Requests are served without one as well.
    logError(formatMessage(std::string("commandListenThreadFunction: no log context: ") + error.what()));
  }
}

void TcpEngineBackEnd::receptionLoop(Socket& socket) {
  Request request;
  while (!stopCommandReception_) {
    std::string errorText;
    int polled = -1;
    try {
      polled = socket.poll(pollMilliseconds, errorText);
    } catch (const ZmqContextTerminationException&) {
      throw;
    } catch (const std::runtime_error& error) {
      errorText = error.what();
    }
    if (polled == 0) {
      receiveAndDispatch(socket, request);
    } else if (polled != 1) {
      logError(formatMessage("Poll error receiving frontend request: " + errorText));
      // A poll that fails at once must not be repeated more often than one that waits.
      std::this_thread::sleep_for(std::chrono::milliseconds(pollMilliseconds));
    }
  }
}

void TcpEngineBackEnd::receiveAndDispatch(Socket& socket, Request& request) {
  try {
    socket.receiveProtoBuf(&request, requestSizeBound);
    dispatch(socket, request);
  } catch (const ZmqContextTerminationException& termination) {
    logError(formatMessage(std::string("Aborting command reception: ") + termination.what()));
    stopCommandReception_ = true;
  } catch (const std::runtime_error& error) {
    logError(formatMessage(std::string("Failed receiving frontend command: ") + error.what()));
  }
  const Lock lock(frontEndMutex_);
  frontEndActivity_.notify_all();
}

void TcpEngineBackEnd::engineStatusPublicationThreadFunction(const SocketEndpoint& endpoint) {
  publishStatuses(endpoint);
  const Lock lock(statusMutex_);
  isPublicationOver_ = true;
  statusPublished_.notify_all();
}

void TcpEngineBackEnd::publishStatuses(const SocketEndpoint& endpoint) {
  std::optional<Socket> socket;
  try {
    socket.emplace("TcpEngineBackEndStatusPublicationSocket", socket::ClosePolicy::Newest);
    socket->createAndConnect(socket::Protocol::Publisher, endpoint, 0);
  } catch (const ZmqContextTerminationException& termination) {
    return logError(formatMessage(std::string("Aborting TCP engine backend: ") + termination.what()));
  } catch (const std::exception& error) {
    return logError(formatMessage(std::string("statusPublicationThreadFunction: failed binding socket: ") +
                                  error.what()));
  }
  if (!isServing()) return logError(formatMessage("statusPublicationThreadFunction: No engine"));
  const auto first = death_ ? EngineStatus::EndOfLife : EngineStatus::Idle;
  // A request may have been faster: the engine may be running already.
  const bool isFirst = [&] {
    const Lock lock(statusMutex_);
    if (engineStatus_ != EngineStatus::Undefined) return false;
    engineStatus_ = first;
    ++statusChanges_;
    return true;
  }();
  if (isFirst) logChangeTo(first);
  try {
    publicationLoop(*socket);
  } catch (const ZmqContextTerminationException& termination) {
    logError(formatMessage(std::string("Aborting TCP engine backend: ") + termination.what()));
    stopStatusPublication_ = true;
  }
}

void TcpEngineBackEnd::publicationLoop(Socket& socket) {
  proto::EngineStatus message;
  publishStatus(socket, message);
  while (!stopStatusPublication_) {
    waitForEngineStatusChange(statusPeriodMilliseconds);
    publishStatus(socket, message);
  }
  // EndOfLife may have been set during another send, or the end of the run may have replaced it.
  if (sentStatus_ != EngineStatus::EndOfLife) sendStatus(socket, message, EngineStatus::EndOfLife);
}

void TcpEngineBackEnd::publishStatus(Socket& socket, proto::EngineStatus& message) {
  unsigned int changes = 0;
  {
    const Lock lock(statusMutex_);
    sentStatus_ = engineStatus_;
    changes = sentChanges_ = statusChanges_;
  }
  if (!sendStatus(socket, message, sentStatus_)) return;
  const Lock lock(statusMutex_);
  publishedChanges_ = changes;
  statusPublished_.notify_all();
}

bool TcpEngineBackEnd::sendStatus(Socket& socket, proto::EngineStatus& message,
                                  EngineStatus::EngineStatus status) {
  message.set_status(wireStatus(status));
  try {
    socket.sendProtoBuf(&message);
    return true;
  } catch (const ZmqContextTerminationException&) {
    throw;
  } catch (const std::runtime_error& error) {
    logError(formatMessage("Failed sending status on :" + socket.debugString() + ": " + error.what()));
    return false;
  }
}

}  // namespace qor::multiprocess_communication
