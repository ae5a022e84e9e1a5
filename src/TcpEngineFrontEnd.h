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

/// Drives an engine in another process, through the TcpEngineBackEnd there, as if it were a local one. It
/// sends a heartbeat about once a second, and says goodbye when it is destroyed.
///
/// Three threads meet here: the host's; the heartbeat thread, which shares the command socket with it, one
/// whole exchange at a time; and the status reception thread. A call that makes an exchange blocks as long as
/// the back end takes to answer, and as long as the exchange before it takes; a peer that has died or frozen
/// is noticed by the socket. A back end that has given no sign, neither a status nor a reply of success, for
/// 15 s is taken for gone; so is one whose statuses cannot be received for as long.
class TcpEngineFrontEnd : public tamb::IEngineFrontEnd, public utils::MessageFormatter {
 public:
  explicit TcpEngineFrontEnd(std::shared_ptr<IClock> clock = SystemClock());
  /// Sends the termination request and joins the threads. Under 2 s with a dead peer; with one whose engine
  /// is stuck in a call, such as a ping, as long as that call.
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
  /// Connects to the back end, within 30 s, starts the threads, and waits for a first status, at most 1 s.
  /// Those of an earlier configuration are stopped first. Throws TAMBRuntimeError for a missing key and
  /// std::runtime_error of the socket; a first status that does not come is no failure.
  void SetInitConfig(std::shared_ptr<const tamb::IParametersCollectionInstance> config) override;
  /// These seven do nothing: what an engine is made of does not cross the process boundary.
  void AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> description) override;
  void AddInputEndpoint(std::string name, std::shared_ptr<tamb::IInputEndpoint> endpoint) override;
  void AddOutputEndpoint(std::string name, std::shared_ptr<tamb::IOutputEndpoint> endpoint) override;
  void AddAllocator(std::string name, std::shared_ptr<tamb::IMemoryBlockAllocator> allocator) override;
  void AddClock(std::string name, std::shared_ptr<tamb::IMediaClock> clock) override;
  void AddLogger(std::string name, std::shared_ptr<tamb::ILogger> logger) override;
  void AddBenchmarker(std::string name, void* benchmarker) override;
  /// Blocks while the remote engine runs, until its back end is taken for gone or this front end gets another
  /// configuration. However short the run is, it is seen: without a recent status, as after a cut of the
  /// connection, the run is requested once statuses come, or 1 s has passed. A refused or failed request is
  /// logged, and Run returns; so it does when another configuration comes before the request. Throws
  /// TAMBRuntimeError when no status reports within 2 s that the engine runs.
  void Run() override;
  /// Failures are logged.
  void Ping(unsigned int timeOutMilliseconds) override;
  /// Failures are logged. Where another thread is about to request the run, the stop is sent behind it.
  void RequestStop() override;
  /// Waits, in slices of 1 s, until the remote engine is not running; throws TAMBRuntimeError once more time
  /// than `timeOutMilliseconds` has passed.
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

  /// What decides whether a status belongs to a run.
  struct RequestedRun {
    unsigned int configuration;
    unsigned int runsBefore;  ///< as runsSeen_ was ahead of the request
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
  /// Unless there is a recent status, waits for one, at most 1 s, so that no change is missed from then on.
  /// Returns at once when no status can come, or once the configuration is another than that.
  void waitForRecentStatus(unsigned int configuration);
  /// False when the engine has not run by the deadline; true, too, once the configuration is another.
  bool waitForRun(IClock::TimePoint deadline, const RequestedRun& run);
  void waitForRunEnd(const RequestedRun& run);
  void reset();
  /// Whoever waits for statuses of the configuration before waits no longer.
  void changeConfiguration();
  unsigned int configuration();
  void engineStatusReceptionThreadFunction(const socket::SocketEndpoint& endpoint);
  /// Leaves `socket` empty when it cannot be opened, which is logged.
  void openStatusSocket(std::optional<socket::Socket>& socket, const socket::SocketEndpoint& endpoint) const;
  /// Until it is stopped, or meets the context's end.
  void receiveStatuses(socket::Socket& socket);
  enum class Polled { Status, Nothing, Failure };
  /// One poll, and what it brings; what cannot be read is nothing.
  Polled pollStatus(socket::Socket& socket, proto::EngineStatus& message);
  /// After a poll in vain: takes a back end that gives no sign any more for gone.
  void endSilence();
  void noteLife();
  void noteStatus();
  /// Whether statuses can come.
  void changeReception(bool isUnderWay);
  void changeRemoteStatus(EngineStatus::EngineStatus status);
  void heartBeatThreadFunction();
  void sleepUntilNextHeartBeat();
  void logFailedExchange(const char* what, const std::exception& error) const;
  Checks checks() const;

  const std::shared_ptr<IClock> clock_;
  std::shared_ptr<std::thread> statusReceptionThread_;
  std::atomic<bool> stopStatusReception_{false};
  /// Held from ahead of the wait for a status until the run has been requested, and for a stop. Taken before
  /// requestMutex_, and that before statusMutex_.
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
