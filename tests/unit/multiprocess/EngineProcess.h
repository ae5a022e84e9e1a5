#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "TcpCommandProcessorBackEnd.h"
#include "TcpEngineBackEnd.h"
#include "TcpNotificationHubBackEnd.h"
#include "qor/proto/ApiService.pb.h"
#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tests/support/Arrivals.h"
#include "tests/support/FakeEngine.h"
#include "tests/support/RecordingCommandProcessor.h"
#include "tests/unit/tamb/FunctionCallback.h"

namespace qor::multiprocess_communication {

namespace api = qor::proto::api_service;

/// Where an engine's process is to be, within this one.
inline api::SubmittedEngine endpoints(const std::string& name = "engine") {
  api::SubmittedEngine where;
  where.set_requestendpoint("inproc://" + name + "-requests");
  where.set_statusendpoint("inproc://" + name + "-status");
  where.set_commandendpoint("inproc://" + name + "-commands");
  where.set_notificationendpoint("inproc://" + name + "-notifications");
  return where;
}

/// What the service starts: an engine and a command processor behind their back ends, and the engine's hub.
class EngineProcess {
 public:
  static constexpr const char* manager = "manager-17";
  static constexpr unsigned int id = 7;

  explicit EngineProcess(const api::SubmittedEngine& where)
      : engine(engineThatTells(pings)),
        control(engine, at(where.requestendpoint()), at(where.statusendpoint())),
        commands(processor, nullptr, at(where.commandendpoint())),
        hub(manager, id, at(where.notificationendpoint())) {}
  ~EngineProcess() { engine->finish(); }
  EngineProcess(const EngineProcess&) = delete;
  EngineProcess& operator=(const EngineProcess&) = delete;

  const std::shared_ptr<test::Arrivals<unsigned int>> pings =
      std::make_shared<test::Arrivals<unsigned int>>();
  const std::shared_ptr<test::FakeEngine> engine;
  const std::shared_ptr<test::RecordingCommandProcessor> processor =
      std::make_shared<test::RecordingCommandProcessor>();
  TcpEngineBackEnd control;
  TcpCommandProcessorBackEnd commands;
  TcpNotificationHubBackEnd hub;

 private:
  static socket::SocketEndpoint at(const std::string& text) {
    return socket::SocketEndpoint::FromString(text);
  }
  static std::shared_ptr<test::FakeEngine> engineThatTells(
      const std::shared_ptr<test::Arrivals<unsigned int>>& pings) {
    auto engine = std::make_shared<test::FakeEngine>();
    engine->onPing = [pings](unsigned int timeOut) { pings->add(timeOut); };
    return engine;
  }
};

/// Checks that a command that is pushed there comes to the process.
inline void expectCarriesCommands(tamb::ICommandProcessorFrontEnd& host, EngineProcess& process) {
  host.SetWorkflowManagerId(EngineProcess::manager);
  host.SetEngineId(EngineProcess::id);
  const auto before = process.processor->commands.all().size();
  host.PushCommand(std::make_shared<tamb::CommandMessage>(
      tamb::CommandFields{.time = tamb::MediaTime(tamb::EditRate(25, 1), 3, nullptr),
                          .commandName = "a command",
                          .commandId = static_cast<unsigned int>(before),
                          .workflowManagerId = EngineProcess::manager,
                          .engineId = EngineProcess::id,
                          .stepId = "a step"}));
  const auto arrived = process.processor->commands.waitFor(before + 1);
  ASSERT_EQ(arrived.size(), before + 1);
  EXPECT_EQ(arrived.back()->GetCommandName(), "a command");
  EXPECT_EQ(arrived.back()->GetCommandId(), before);
}

/// Checks that a notification of the process comes to a subscriber there.
inline void expectCarriesNotifications(tamb::INotificationHubFrontEnd& host, EngineProcess& process) {
  const auto lines = std::make_shared<test::Arrivals<std::string>>();
  const auto subscription = host.Subscribe(tamb::test::callback(
      [lines](const auto& notification) { lines->add(notification->GetNotificationLine()); }));
  process.hub.PushNotification(std::make_shared<tamb::NotificationMessage>(
      tamb::NotificationFields{.time = tamb::MediaTime(tamb::EditRate(25, 1), 3, nullptr),
                               .stepId = "a step",
                               .notificationLine = "a line",
                               .workflowManagerId = EngineProcess::manager,
                               .engineId = EngineProcess::id}));
  EXPECT_THAT(lines->waitFor(1), ::testing::ElementsAre("a line"));
  host.Unsubscribe(subscription);
}

/// Checks that a ping gets through to the engine.
inline void expectCarriesPings(tamb::IEngineFrontEnd& host, EngineProcess& process) {
  const auto before = process.pings->all().size();
  host.Ping(1'234);
  const auto pings = process.pings->all();
  ASSERT_EQ(pings.size(), before + 1);
  EXPECT_EQ(pings.back(), 1'234U);
}

}  // namespace qor::multiprocess_communication
