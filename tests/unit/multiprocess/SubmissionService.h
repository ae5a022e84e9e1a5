#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "qor/proto/ApiService.pb.h"
#include "qor/socket/Socket.h"
#include "qor/socket/ZmqContextTerminationException.h"
#include "tests/support/Arrivals.h"

namespace qor::multiprocess_communication {

namespace api = qor::proto::api_service;

/// The submission service: keeps what it is asked, and answers as a test wants.
class SubmissionService {
 public:
  /// Called for each request on the service's thread; with nothing the request stays unanswered.
  using Answer = std::function<std::optional<api::ServiceToApiReply>()>;

  SubmissionService(const std::string& endpoint, Answer answer) : answer_(std::move(answer)) {
    replier_.createAndConnect(socket::Protocol::Replier, socket::SocketEndpoint::FromString(endpoint), 0);
    thread_ = std::thread([this] { serve(); });
  }
  ~SubmissionService() {
    leave();
    thread_.join();
  }
  SubmissionService(const SubmissionService&) = delete;
  SubmissionService& operator=(const SubmissionService&) = delete;

  /// Ends the service soon, whoever waits for its answer. Any thread.
  void leave() { isLeaving_ = true; }

  test::Arrivals<api::ApiToServiceRequest> requests;

 private:
  void serve() {
    while (!isLeaving_) {
      try {
        serveOne();
      } catch (const socket::ZmqContextTerminationException&) {
        leave();
      } catch (const std::runtime_error&) {  // whoever asked has gone
      }
    }
    replier_.close();
  }
  void serveOne() {
    std::string errorText;
    api::ApiToServiceRequest request;
    if (replier_.poll(10, errorText) != 0 || replier_.receiveProtoBuf(&request, 65'536) != 0) return;
    requests.add(request);
    auto reply = answer_();
    if (reply) replier_.sendProtoBuf(&*reply);
  }

  const Answer answer_;
  std::atomic<bool> isLeaving_{false};
  socket::Socket replier_{"SubmissionService", socket::ClosePolicy::Newest};
  std::thread thread_;
};

}  // namespace qor::multiprocess_communication
