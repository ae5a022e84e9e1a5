#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "TcpEngine.pb.h"
#include "TcpEngineFrontEnd.h"
#include "fuzz/Reception.h"
#include "qor/socket/Socket.h"
#include "tamb/TAMBRuntimeError.h"

namespace {

namespace inproc = qor::socket::inproc;
namespace proto = qor::multiprocess_communication::proto;
namespace socket = qor::socket;
using qor::fuzz::require;
using qor::multiprocess_communication::TcpEngineFrontEnd;
using Request = proto::EngineFrontEndRequest;
using Reply = proto::EngineBackEndReply;

std::string encoded(proto::EngineBackEndReply_ReplyType type) {
  Reply reply;
  reply.set_type(type);
  return reply.SerializeAsString();
}

std::string encoded(proto::EngineStatus_Status status) {
  proto::EngineStatus message;
  message.set_status(status);
  return message.SerializeAsString();
}

/// Counts log records: a call whose exchange fails only logs that.
class LogCount : public qor::fuzz::Silence {
 public:
  /// The records since the last call.
  unsigned int take() { return records_.exchange(0); }
  void Write(tamb::LogLevel /*level*/, const std::string& /*message*/, const std::string& /*context*/,
             const std::string& /*source*/, const std::string& /*line*/, const std::string& /*function*/,
             const std::string& /*threadId*/, const std::string& /*time*/) override {
    ++records_;
  }

 private:
  std::atomic<unsigned int> records_{0};
};

/// Waits for a time of day end at once. The steady time stands still, so there are no heartbeats between the
/// calls.
class HastyClock : public qor::multiprocess_communication::IClock {
 public:
  TimePoint now() const override { return now_; }
  SteadyTimePoint steadyNow() const override { return {}; }
  bool waitUntil(std::condition_variable& /*changed*/, std::unique_lock<std::mutex>& /*lock*/,
                 TimePoint deadline) override {
    now_ = deadline;
    return false;
  }
  bool waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                 SteadyTimePoint /*deadline*/) override {
    changed.wait(lock);
    return true;
  }

 private:
  std::atomic<TimePoint> now_{TimePoint()};
};

/// Answers with the given bytes, and correctly to the front end's own requests.
class BackEnd {
 public:
  BackEnd() {
    socket_.createAndConnect(socket::Protocol::Replier,
                             socket::SocketEndpoint::FromString("inproc://requests"), 0);
    thread_ = std::thread([this] { answer(); });
  }
  ~BackEnd() {
    stop_ = true;
    socket_.close();
    thread_.join();
  }
  BackEnd(const BackEnd&) = delete;
  BackEnd& operator=(const BackEnd&) = delete;

  void answerWith(std::string bytes) {
    const std::lock_guard lock(mutex_);
    bytes_ = std::move(bytes);
  }

 private:
  void answer() {
    Request request;
    std::string errorText;
    while (!stop_) {
      if (socket_.poll(1'000, errorText) != 0) continue;
      socket_.receiveProtoBuf(&request, socket::Socket::maximumMessageSize);
      const bool isCalled = request.type() == Request::Ping || request.type() == Request::RequestStop;
      const std::lock_guard lock(mutex_);
      inproc::deliver("TcpEngineFrontEndCommandSocket", isCalled ? bytes_ : encoded(Reply::Success));
    }
  }

  socket::Socket socket_{"AnsweringSocket", socket::ClosePolicy::Newest};
  std::mutex mutex_;
  std::string bytes_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

class Host {
 public:
  Host() {
    qor::fuzz::Silence::keep(log_);
    // The front end waits for it, with a clock that stands still.
    const std::jthread firstStatus([] {
      require(inproc::waitUntilOpen(statusSocket), "a status can be received");
      qor::fuzz::receiveAs(statusSocket, encoded(proto::EngineStatus::Idle));
    });
    frontEnd_.SetInitConfig(TcpEngineFrontEnd::GenerateConfig("inproc://requests", "inproc://status"));
  }

  /// Whether the exchange of a call failed.
  bool failsWith(const std::string& reply, bool asPing) {
    backEnd_.answerWith(reply);
    log_->take();
    asPing ? frontEnd_.Ping(0) : frontEnd_.RequestStop();
    return log_->take() != 0;
  }

  /// Whether the front end considers the engine running after a status.
  bool runsAfter(const std::string& status) {
    qor::fuzz::receiveAs(statusSocket, status);
    try {
      frontEnd_.WaitForStop(0);
      return false;
    } catch (const tamb::TAMBRuntimeError&) {
      return true;
    }
  }

 private:
  static constexpr const char* statusSocket = "TcpEngineFrontEndStatusReceptionSocket";

  const std::shared_ptr<LogCount> log_ = std::make_shared<LogCount>();
  BackEnd backEnd_;
  TcpEngineFrontEnd frontEnd_{std::make_shared<HastyClock>()};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Host host;
  const std::string bytes(reinterpret_cast<const char*>(data), size);

  const auto reply = qor::fuzz::understood<Reply>(bytes, 8'192);
  const bool isGood = reply.has_type() && reply.type() == Reply::Success;
  const bool asPing = size % 2 == 0;
  require(host.failsWith(bytes, asPing) != isGood, "only a success passes for one");
  require(!host.failsWith(encoded(Reply::Success), !asPing), "the next exchange succeeds");

  require(host.runsAfter(encoded(proto::EngineStatus::Running)), "a status is understood");
  const auto status = qor::fuzz::understood<proto::EngineStatus>(bytes, 1'024);
  const bool stillRuns = !status.has_status() || status.status() == proto::EngineStatus::Running;
  require(host.runsAfter(bytes) == stillRuns, "what is no status changes none");
  require(!host.runsAfter(encoded(proto::EngineStatus::Idle)), "the next status is understood");
  return 0;
}
