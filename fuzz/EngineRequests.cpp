#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "TcpEngine.pb.h"
#include "TcpEngineBackEnd.h"
#include "fuzz/Reception.h"
#include "tests/support/FakeEngine.h"

namespace {

namespace inproc = qor::socket::inproc;
using qor::fuzz::require;
using qor::multiprocess_communication::TcpEngineBackEnd;
using qor::socket::SocketEndpoint;
using Request = qor::multiprocess_communication::proto::EngineFrontEndRequest;
using Reply = qor::multiprocess_communication::proto::EngineBackEndReply;

constexpr const char* requestSocket = "TcpEngineBackEndCommandListenSocket";
constexpr const char* oddPing = "the time-out is odd";

std::string heartBeat() {
  Request request;
  request.set_type(Request::HeartBeat);
  return request.SerializeAsString();
}

/// The socket rejects a second reply to one request, which is only logged.
class ReplyWatch : public qor::fuzz::Silence {
 public:
  void Write(tamb::LogLevel /*level*/, const std::string& message, const std::string& /*context*/,
             const std::string& /*source*/, const std::string& /*line*/, const std::string& /*function*/,
             const std::string& /*threadId*/, const std::string& /*time*/) override {
    require(message.find("Engine reply sending failed") == std::string::npos, "no request gets two replies");
  }
};

/// The reply; empty if there is none after the request has been handled.
std::optional<Reply> replyTo(const std::string& bytes) {
  auto encoded = inproc::request(requestSocket, bytes);
  require(inproc::waitUntilBlocked(requestSocket, inproc::Operation::Poll), "reception goes on");
  if (encoded.wait_for(std::chrono::seconds(0)) != std::future_status::ready) return std::nullopt;
  Reply reply;
  require(reply.ParseFromString(encoded.get()), "a reply can be read");
  return reply;
}

/// An engine that has not run yet. An engine process runs only once, so each input that requests a run has
/// its own.
struct EngineProcess {
  EngineProcess() {
    qor::fuzz::Silence::keep(std::make_shared<ReplyWatch>());
    engine->onPing = [](unsigned int timeOut) {
      if (timeOut % 2 != 0) throw std::runtime_error(oddPing);
    };
    backEnd = std::make_unique<TcpEngineBackEnd>(engine, SocketEndpoint::FromString("inproc://requests"),
                                                 SocketEndpoint::FromString("inproc://status"));
    require(inproc::waitUntilOpen(requestSocket), "requests can be sent");
  }
  ~EngineProcess() {
    engine->finish();
    std::thread end([this] { backEnd.reset(); });
    // Reception would notice its stop flag only after its poll.
    try {
      for (;;) inproc::request(requestSocket, heartBeat()).wait();
    } catch (const std::runtime_error&) {  // The socket is closed.
    }
    end.join();
  }
  EngineProcess(const EngineProcess&) = delete;
  EngineProcess& operator=(const EngineProcess&) = delete;

  std::shared_ptr<qor::test::FakeEngine> engine = std::make_shared<qor::test::FakeEngine>();
  std::unique_ptr<TcpEngineBackEnd> backEnd;
};

/// Why a request is refused; empty if it is granted.
std::string refusalOf(const Request& request) {
  if (!request.has_type() || request.type() == Request::WaitForStop) return "Request error";
  const bool isOddPing = request.type() == Request::Ping && request.timeoutmilliseconds() % 2 != 0;
  return isOddPing ? oddPing : "";
}

void requireRightReply(const Request& request, const std::optional<Reply>& reply) {
  if (request.has_type() && request.type() == Request::RequestStart) {
    return require(!reply, "a start gets no reply");
  }
  require(reply.has_value(), "a request gets a reply");
  const std::string refusal = refusalOf(request);
  require((reply->type() == Reply::Success) == refusal.empty(), "what can be done is granted, and only that");
  require(reply->errorstring().find(refusal) != std::string::npos, "a refusal has its reason");
}

}  // namespace

/// With tens of thousands of threads, their ids are reused, and LeakSanitizer then reports memory on the
/// stack of a live one as leaked.
extern "C" int __lsan_is_turned_off() { return 1; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static std::optional<EngineProcess> process(std::in_place);
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const auto request = qor::fuzz::understood<Request>(bytes);
  const bool runs = request.has_type() && request.type() == Request::Run;

  requireRightReply(request, replyTo(bytes));
  if (runs) require(process->engine->waitUntilRunning(), "the engine runs when it was asked to");
  const auto next = replyTo(heartBeat());
  require(next && next->type() == Reply::Success, "the next request is answered");
  require(process->engine->runs() == (runs ? 1 : 0), "the engine runs only when it was asked to");
  if (runs) process.emplace();
  return 0;
}
