#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "RemoteEngineFrontEnd.h"
#include "qor/proto/ApiService.pb.h"
#include "runtime/inproc/Network.h"
#include "runtime/tamb/EngineDescription.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/BackgroundCall.h"
#include "tests/support/CapturedLog.h"
#include "tests/unit/multiprocess/EngineProcess.h"
#include "tests/unit/multiprocess/SubmissionService.h"

namespace qor::multiprocess_communication {

/// A remote engine, and whatever a test wants to be there of the service and the engine's process.
class RemoteEngineTest : public ::testing::Test {
 public:
  ~RemoteEngineTest() override { socket::inproc::reset(); }

 protected:
  using Reply = api::ServiceToApiReply;
  using Operation = socket::inproc::Operation;
  using Failure = socket::inproc::Failure;
  using Config = std::shared_ptr<const tamb::IParametersCollectionInstance>;

  static constexpr const char* serviceAddress = "inproc://submission-service";
  static constexpr const char* submission = "EngineSubmissionSocket";
  static constexpr const char* commands = "TcpCommandProcessorFrontEndCommand";
  static constexpr const char* notifications = "TcpNotificationHubFrontEndNotification";
  static constexpr const char* control = "TcpEngineFrontEndCommandSocket";
  static constexpr const char* statuses = "TcpEngineFrontEndStatusReceptionSocket";
  static constexpr std::chrono::seconds patience{20};

  void TearDown() override {
    engine_.reset();
    process_.reset();
    service_.reset();
    EXPECT_TRUE(socket::inproc::sockets().empty());
  }

  static Config config(const std::string& serviceEndpoint = serviceAddress) {
    const auto filled =
        tamb::CreateParametersCollectionInstance(RemoteEngineFrontEnd::GetParametersCollectionPrototype());
    filled->SetUTF8String("QorServiceEndpoint", serviceEndpoint);
    return filled;
  }
  static std::shared_ptr<tamb::EngineDescription> description(const std::string& text = "{}") {
    return std::make_shared<tamb::EngineDescription>(EngineProcess::manager, text, 7);
  }

  static Reply submitted(const api::SubmittedEngine& where = endpoints()) {
    Reply reply;
    reply.set_kind(Reply::ENGINE_SUBMITTED);
    *reply.MutableExtension(api::ServiceToApiReplyEngineSubmission) = where;
    return reply;
  }

  void startService(SubmissionService::Answer answer) { service_.emplace(serviceAddress, std::move(answer)); }
  void startService(const Reply& reply = submitted()) {
    startService([reply] { return reply; });
  }
  /// The service leaves the request unanswered, and the host gets these bytes for a reply.
  void startServiceThatSays(const std::string& bytes) {
    startService([bytes]() -> std::optional<Reply> {
      socket::inproc::deliver(submission, bytes);
      return std::nullopt;
    });
  }
  std::size_t submissions() { return service_->requests.all().size(); }

  /// With the configuration first.
  void submit() {
    engine_->SetInitConfig(config());
    engine_->AddEngineDescription(description());
  }
  /// Service, process and host, all connected.
  void wire() {
    startService();
    process_.emplace(endpoints());
    ASSERT_NO_THROW(submit());
    ASSERT_TRUE(socket::inproc::waitUntilOpen(statuses));
  }

  /// The names of the sockets that the host has open or is opening, in the order of their opening. That of
  /// the status reception is left out: a thread opens it at its leisure.
  static std::vector<std::string> hostSockets() {
    static constexpr std::array hosts{submission, commands, notifications, control};
    std::vector<std::string> names;
    for (const auto& state : socket::inproc::sockets()) {
      if (std::find(hosts.begin(), hosts.end(), state.name) != hosts.end()) names.push_back(state.name);
    }
    return names;
  }

  /// What a call throws, in words.
  template <class Call>
  static std::string messageOf(Call call) {
    try {
      call();
    } catch (const std::exception& error) {
      return error.what();
    }
    return "nothing was thrown";
  }
  /// What is said of an endpoint that cannot be read.
  static std::string complaintAbout(const std::string& endpoint) {
    return messageOf([&] { socket::SocketEndpoint::FromString(endpoint); });
  }

  /// Checks that a check of the remote engine's refuses a call: one error record, and an exception that says
  /// the same. `condition` is what the condition should have been.
  template <class Call>
  void expectRefused(Call call, const std::string& text, const std::string& condition, int line) const {
    const std::string message =
        "[Remote engine front end: " + text + "] [ Condition is not " + condition + " ]";
    const auto before = log_.recordsWith(message).size();
    EXPECT_THAT(call, ::testing::ThrowsMessage<tamb::TAMBRuntimeError>(message));
    const auto records = log_.recordsWith(message);
    ASSERT_EQ(records.size(), before + 1);
    EXPECT_EQ(records.back().message, message);
    EXPECT_EQ(static_cast<int>(records.back().level), 2);
    EXPECT_EQ(records.back().source, "src/RemoteEngineFrontEnd");
    EXPECT_EQ(records.back().line, std::to_string(line));
    EXPECT_EQ(records.back().function, "");
  }
  void expectRefusesAnotherConfiguration() {
    expectRefused([this] { engine_->SetInitConfig(config()); }, "Does not allow multiple configurations",
                  "false", 25);
  }
  void expectRefusesAnotherDescription() {
    expectRefused([this] { engine_->AddEngineDescription(description()); },
                  "Does not allow multiple engine descriptions", "false", 37);
  }

  const test::CapturedLog log_;
  std::optional<SubmissionService> service_;
  std::optional<EngineProcess> process_;
  std::optional<RemoteEngineFrontEnd> engine_{std::in_place};
};

}  // namespace qor::multiprocess_communication
