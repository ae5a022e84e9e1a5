#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "Checks.h"
#include "Clock.h"
#include "Serializers.h"
#include "TcpEngine.pb.h"
#include "qor/socket/Socket.h"
#include "qor/utils/MessageFormatter.h"
#include "tamb/IEngineFrontEnd.h"

namespace qor::multiprocess_communication {

/// Drives an engine in another process, through the TcpEngineBackEnd there, as if it were local. Sends a
/// heartbeat about once a second, and a termination request when it is destroyed.
///
/// Three threads use it: the host's; the heartbeat thread, which shares the command socket with the host's
/// thread, one whole exchange at a time; and the status reception thread. A call that makes an exchange
/// blocks until the exchange before it has ended and the back end has answered; the socket detects a dead or
/// frozen peer. A back end counts as gone when for 15 s there has been neither a status nor a reply of
/// success, or its statuses could not be received.
class TcpEngineFrontEnd : public tamb::IEngineFrontEnd, public utils::MessageFormatter {
 public:
  explicit TcpEngineFrontEnd(std::shared_ptr<IClock> clock = SystemClock());
  /// Sends the termination request and joins the threads. Takes less than 2 s with a dead peer. While the
  /// engine is busy in a call such as a ping, it takes as long as that call.
  ~TcpEngineFrontEnd() override;
  TcpEngineFrontEnd(const TcpEngineFrontEnd&) = delete;
  TcpEngineFrontEnd& operator=(const TcpEngineFrontEnd&) = delete;

  /// The two string parameters that SetInitConfig reads.
  static std::shared_ptr<const tamb::IParametersCollectionPrototype> GetParametersCollectionPrototype();
  static std::shared_ptr<const tamb::IParametersCollectionInstance> GenerateConfig(
      const std::string& requestEndpoint, const std::string& statusEndpoint);
  static std::shared_ptr<const tamb::IParametersCollectionInstance> GenerateConfig(
      const socket::SocketEndpoint& requestEndpoint, const socket::SocketEndpoint& statusEndpoint);

  /// Always the status of value 0: the remote status is not reported here.
  tamb::EngineStatus GetStatus() const override;
  /// Always empty.
  std::string GetLastErrorMessage() const override;
  /// Always throws TAMBRuntimeError.
  tamb::TimeInfo GetCurrentTimeInfo(const std::string& name) const override;
  /// Stops the threads of an earlier configuration, connects to the back end within 30 s, starts the threads,
  /// and waits at most 1 s for a first status; its absence is not a failure. Throws TAMBRuntimeError for a
  /// missing key, and the socket's std::runtime_error.
  void SetInitConfig(std::shared_ptr<const tamb::IParametersCollectionInstance> config) override;
  /// These seven do nothing: the parts of an engine do not cross the process boundary.
  void AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> description) override;
  void AddInputEndpoint(std::string name, std::shared_ptr<tamb::IInputEndpoint> endpoint) override;
  void AddOutputEndpoint(std::string name, std::shared_ptr<tamb::IOutputEndpoint> endpoint) override;
  void AddAllocator(std::string name, std::shared_ptr<tamb::IMemoryBlockAllocator> allocator) override;
  void AddClock(std::string name, std::shared_ptr<tamb::IMediaClock> clock) override;
  void AddLogger(std::string name, std::shared_ptr<tamb::ILogger> logger) override;
  void AddBenchmarker(std::string name, void* benchmarker) override;
  /// Blocks while the remote engine runs, until its back end counts as gone or this front end gets another
  /// configuration. Notices even the shortest run: without a recent status, as after a lost connection, it
  /// requests the run only when a status has been received or 1 s has passed. Logs a refused or failed
  /// request and returns; also returns when another configuration is set before the request. Throws
  /// TAMBRuntimeError when no status reports within 2 s that the engine runs.
  void Run() override;
  /// Failures are logged.
  void Ping(unsigned int timeOutMilliseconds) override;
  /// Failures are logged. While another thread is requesting the run, the stop is sent after that request.
  void RequestStop() override;
  /// Waits in slices of 1 s until the remote engine is not running. Throws TAMBRuntimeError when more than
  /// `timeOutMilliseconds` have passed.
  void WaitForStop(unsigned int timeOutMilliseconds) override;
  void SetWorkflowManagerId(std::string id) override;
  void SetEngineId(unsigned int id) override;
  std::string GetWorkflowManagerId() const override;
  unsigned int GetEngineId() const override;
  /// Logs that it cannot be used.
  void SetNotificationHubBackEnd(std::shared_ptr<tamb::INotificationHubBackEnd> hub) override;

 private:
  using Request = proto::EngineFrontEndRequest;
  using Reply = proto::EngineBackEndReply;

  /// Identifies the statuses that belong to a run.
  struct RequestedRun {
    unsigned int configuration;
    unsigned int runsBefore;  ///< runsSeen_ before the request
  };

  std::string sendRequestGetReply(proto::EngineFrontEndRequest_RequestType type,
                                  unsigned int timeOutMilliseconds);
  /// One exchange, with requestMutex_ held.
  Reply exchange(proto::EngineFrontEndRequest_RequestType type, unsigned int timeOutMilliseconds)
      MULTIPROCESS_REQUIRES(requestMutex_);
  std::string resultOf(const Reply& reply) const;
  /// Throws what a failed exchange does, and std::runtime_error when another configuration came first.
  RequestedRun requestRun();
  bool waitForEngineStatusChange(IClock::TimePoint deadline, EngineStatus::EngineStatus seen);
  /// Waits at most 1 s for a recent status, so that no later change is missed. Returns at once when there is
  /// one, when no status can be received, or when the configuration is a different one.
  void waitForRecentStatus(unsigned int configuration);
  /// False when the engine has not run by the deadline. Also true when the configuration is a different one.
  bool waitForRun(IClock::TimePoint deadline, const RequestedRun& run);
  void waitForRunEnd(const RequestedRun& run);
  void reset();
  /// Ends every wait for a status of the previous configuration.
  void changeConfiguration();
  unsigned int configuration();
  void engineStatusReceptionThreadFunction(const socket::SocketEndpoint& endpoint);
  /// Leaves `socket` empty when it cannot be opened, which is logged.
  void openStatusSocket(std::optional<socket::Socket>& socket, const socket::SocketEndpoint& endpoint) const;
  /// Returns when it is stopped; throws when the messaging context is shut down.
  void receiveStatuses(socket::Socket& socket);
  enum class Polled { Status, Nothing, Failure };
  /// One poll, and one receive if a message is waiting. An unreadable message counts as nothing.
  Polled pollStatus(socket::Socket& socket, proto::EngineStatus& message);
  /// Called after a poll without a status: decides whether a silent back end counts as gone.
  void endSilence();
  void noteLife();
  void noteStatus();
  /// Sets whether statuses can be received.
  void changeReception(bool isUnderWay);
  void changeRemoteStatus(EngineStatus::EngineStatus status);
  void heartBeatThreadFunction();
  void sleepUntilNextHeartBeat();
  void logFailedExchange(const char* what, const std::exception& error) const;
  Checks checks() const;

  const std::shared_ptr<IClock> clock_;
  std::shared_ptr<std::thread> statusReceptionThread_;
  std::atomic<bool> stopStatusReception_{false};
  /// Held from before the wait for a status until the run has been requested, and for a stop. Taken before
  /// requestMutex_, which is taken before statusMutex_.
  Mutex runRequestMutex_;
  Mutex requestMutex_;  ///< held for a whole exchange on the command socket
  socket::Socket commandSocket_;
  std::shared_ptr<std::thread> heartBeatThread_;
  std::atomic<bool> stopHeartBeat_{false};
  Mutex heartBeatMutex_;  ///< with the condition: lets reset() end the sleep between two heartbeats
  std::condition_variable heartBeatStopped_;
  unsigned int pollsInVain_ = 0;  ///< the status thread's own; since the last sign was too long ago
  bool isDeaf_ = false;  ///< the status thread's own; a poll or a receive has failed since the last status
  Mutex statusMutex_;    ///< also held to change what the two conditions report
  std::condition_variable statusChanged_;
  std::condition_variable receptionChanged_;
  /// Changes with the command socket's peer, and before it.
  unsigned int configuration_ MULTIPROCESS_GUARDED_BY(statusMutex_) = 0;
  /// How often the status has become Running.
  unsigned int runsSeen_ MULTIPROCESS_GUARDED_BY(statusMutex_) = 0;
  bool isReceiving_ MULTIPROCESS_GUARDED_BY(statusMutex_) = false;
  /// When the last status was received; empty before the first.
  std::optional<IClock::SteadyTimePoint> lastStatus_ MULTIPROCESS_GUARDED_BY(statusMutex_);
  /// When a status or a successful reply was last received, or reception began.
  IClock::SteadyTimePoint lastSign_ MULTIPROCESS_GUARDED_BY(statusMutex_);
  std::atomic<EngineStatus::EngineStatus> remoteEngineStatus_{EngineStatus::Undefined};
  unsigned int engineId_ = 0;
  std::string workflowManagerId_;
};

}  // namespace qor::multiprocess_communication
