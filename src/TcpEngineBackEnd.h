#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "Clock.h"
#include "Serializers.h"
#include "TcpEngine.pb.h"
#include "qor/socket/Socket.h"
#include "qor/utils/MessageFormatter.h"
#include "tamb/IEngineFrontEnd.h"

namespace qor::multiprocess_communication {

/// How an engine's process died, in one line.
struct EngineDeath {
  std::string cause;
};

/// Makes a local engine controllable from another process: answers control requests on one socket, publishes
/// the engine's status on another, runs the engine on a thread of its own, and reports to the engine process
/// when its controller has disconnected.
///
/// The command reception thread serves requests one at a time, in the order of their arrival. It makes every
/// call into the engine except Run, which is called on the engine run thread. The status publication thread
/// publishes at once, on every change and at least once a second. It skips no change: the next change waits
/// at most 1 s until the previous one has been published.
class TcpEngineBackEnd final : public utils::MessageFormatter {
 public:
  /// Returns at once: the threads bind the sockets. Without an engine, both threads end as soon as they have
  /// started.
  TcpEngineBackEnd(std::shared_ptr<tamb::IEngineFrontEnd> engine,
                   const socket::SocketEndpoint& requestEndpoint,
                   const socket::SocketEndpoint& statusEndpoint);
  /// With a clock of its own.
  TcpEngineBackEnd(std::shared_ptr<tamb::IEngineFrontEnd> engine,
                   const socket::SocketEndpoint& requestEndpoint,
                   const socket::SocketEndpoint& statusEndpoint, std::shared_ptr<IClock> clock);
  /// Replaces the back end of an engine process that has died: publishes EndOfLife, and answers every request
  /// except FrontEndTermination with a Failure that contains the cause.
  TcpEngineBackEnd(EngineDeath death, const socket::SocketEndpoint& requestEndpoint,
                   const socket::SocketEndpoint& statusEndpoint,
                   std::shared_ptr<IClock> clock = SystemClock());
  /// Publishes EndOfLife and joins the threads. Waits for the engine's Run to return: the engine must have
  /// been asked to stop before.
  ~TcpEngineBackEnd();
  TcpEngineBackEnd(const TcpEngineBackEnd&) = delete;
  TcpEngineBackEnd& operator=(const TcpEngineBackEnd&) = delete;

  /// Blocks until the front end has disconnected, or has been silent for 10 s. Any thread. Does not throw.
  void waitForFrontEndTermination();
  /// Makes every present and later waitForFrontEndTermination return. Any thread.
  void endWaitForFrontEndTermination();

 private:
  using Request = proto::EngineFrontEndRequest;
  using Reply = proto::EngineBackEndReply;

  /// The last step of every constructor.
  void startThreads(const socket::SocketEndpoint& requestEndpoint,
                    const socket::SocketEndpoint& statusEndpoint);
  /// Whether there is an engine or a death to report.
  bool isServing() const { return engine_ || death_; }

  /// Waits at most 1 s until the previous status has been published, if it still can be. One change at a
  /// time.
  void changeEngineStatus(EngineStatus::EngineStatus status);
  /// Returns at once while there is an unsent change.
  bool waitForEngineStatusChange(unsigned int milliseconds);
  void publishStatus(socket::Socket& socket, proto::EngineStatus& message);
  /// False when it could not be sent, which is logged.
  bool sendStatus(socket::Socket& socket, proto::EngineStatus& message, EngineStatus::EngineStatus status);

  void dispatch(socket::Socket& socket, const Request& request);
  void sendReply(socket::Socket& socket, proto::EngineBackEndReply_ReplyType type,
                 const std::string& replyString, const std::string& errorString);
  void handleRunRequest(socket::Socket& socket);
  void handlePingRequest(socket::Socket& socket, unsigned int timeOutMilliseconds);
  void handleRequestStopRequest(socket::Socket& socket);
  void handleFrontEndTerminationRequest(socket::Socket& socket);
  void handleHeartBeatRequest(socket::Socket& socket);
  void handleRequestError(socket::Socket& socket);
  template <class Call>
  void replyToEngineCall(socket::Socket& socket, const Call& call);
  /// Returns why no run was started, or an empty text when one was.
  std::string startEngineRun();

  void engineRunThreadFunction();
  void commandReceptionThreadFunction(const socket::SocketEndpoint& endpoint);
  void defineLogContext() const;
  void receptionLoop(socket::Socket& socket);
  void receiveAndDispatch(socket::Socket& socket, Request& request);
  void engineStatusPublicationThreadFunction(const socket::SocketEndpoint& endpoint);
  /// The publication thread: returns when nothing more is to be published or the context is shut down.
  void publishStatuses(const socket::SocketEndpoint& endpoint);
  void publicationLoop(socket::Socket& socket);
  void noteFrontEndTermination();
  void stop();

  const std::shared_ptr<IClock> clock_;
  const std::shared_ptr<tamb::IEngineFrontEnd> engine_;
  const std::optional<EngineDeath> death_;
  std::shared_ptr<std::thread> commandReceptionThread_;
  std::atomic<bool> stopCommandReception_{false};
  Reply reply_;  ///< the reception thread's, used again and again
  std::shared_ptr<std::thread> statusPublicationThread_;
  std::atomic<bool> stopStatusPublication_{false};
  Mutex engineRunMutex_;  ///< also held to set stopCommandReception_, so that no run starts after that
  std::shared_ptr<std::thread> engineRunThread_ MULTIPROCESS_GUARDED_BY(engineRunMutex_);
  Mutex statusChangeMutex_;  ///< held for the whole of a change; taken before statusMutex_
  Mutex statusMutex_;        ///< also held to change what the two conditions report
  std::condition_variable statusChanged_;
  std::condition_variable statusPublished_;
  std::atomic<EngineStatus::EngineStatus> engineStatus_{EngineStatus::Undefined};
  /// How many changes of status have been made,
  unsigned int statusChanges_ MULTIPROCESS_GUARDED_BY(statusMutex_) = 0;
  /// how many of them were passed to the socket, successfully or not,
  unsigned int sentChanges_ MULTIPROCESS_GUARDED_BY(statusMutex_) = 0;
  /// and how many have been published.
  unsigned int publishedChanges_ MULTIPROCESS_GUARDED_BY(statusMutex_) = 0;
  bool isPublicationOver_ MULTIPROCESS_GUARDED_BY(statusMutex_) = false;
  EngineStatus::EngineStatus sentStatus_ = EngineStatus::Undefined;  ///< the publication thread's own
  Mutex frontEndMutex_;  ///< held to change what the next condition reports
  std::condition_variable frontEndActivity_;
  std::atomic<bool> frontEndTerminated_{false};
};

}  // namespace qor::multiprocess_communication
