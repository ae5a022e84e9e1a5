#include "bench/compare/OurEnds.h"

#include <utility>

#include "TcpCommandProcessorBackEnd.h"
#include "TcpCommandProcessorFrontEnd.h"
#include "TcpEngineBackEnd.h"
#include "TcpEngineFrontEnd.h"
#include "TcpNotificationHubBackEnd.h"
#include "TcpNotificationHubFrontEnd.h"
#include "bench/compare/Sinks.h"
#include "bench/compare/TypicalMessages.h"
#include "tests/support/FakeEngine.h"

namespace qor::bench {

namespace {

using multiprocess_communication::TcpCommandProcessorBackEnd;
using multiprocess_communication::TcpCommandProcessorFrontEnd;
using multiprocess_communication::TcpEngineBackEnd;
using multiprocess_communication::TcpEngineFrontEnd;
using multiprocess_communication::TcpNotificationHubBackEnd;
using multiprocess_communication::TcpNotificationHubFrontEnd;
using socket::SocketEndpoint;

constexpr unsigned int pingMilliseconds = 1'000;

class OurHostEnd : public HostEnd {
 public:
  OurHostEnd(const Addresses& addresses, Arrived arrived)
      : notifications_(tamb::CreateNotificationHub().first,
                       std::make_shared<NotificationSink>(std::move(arrived))) {
    commands_.SetWorkflowManagerId(workflowManagerId);
    commands_.SetEngineId(engineId);
    commands_.connectEndpoint(SocketEndpoint::FromString(addresses.command));
    notifications_.startSubscriptionThread(SocketEndpoint::FromString(addresses.notification));
    control_.SetInitConfig(TcpEngineFrontEnd::GenerateConfig(SocketEndpoint::FromString(addresses.request),
                                                             SocketEndpoint::FromString(addresses.status)));
  }
  void ping() override { control_.Ping(pingMilliseconds); }
  void push(const CommandList& commands, bool /*moreFollow*/) override { commands_.PushCommands(commands); }

 private:
  TcpCommandProcessorFrontEnd commands_;
  TcpEngineFrontEnd control_;
  TcpNotificationHubFrontEnd notifications_;
};

class OurEngineEnd : public EngineEnd {
 public:
  OurEngineEnd(const Addresses& addresses, Arrived arrived)
      : notifications_(workflowManagerId, engineId, SocketEndpoint::FromString(addresses.notification)),
        commands_(std::make_shared<CommandSink>(std::move(arrived)), nullptr,
                  SocketEndpoint::FromString(addresses.command)),
        control_(std::make_shared<test::FakeEngine>(), SocketEndpoint::FromString(addresses.request),
                 SocketEndpoint::FromString(addresses.status)) {}
  void push(const NotificationList& notifications, bool /*moreFollow*/) override {
    notifications_.PushNotifications(notifications);
  }

 private:
  TcpNotificationHubBackEnd notifications_;
  TcpCommandProcessorBackEnd commands_;
  TcpEngineBackEnd control_;
};

}  // namespace

std::unique_ptr<HostEnd> makeOurHostEnd(const Addresses& addresses, Arrived arrived) {
  return std::make_unique<OurHostEnd>(addresses, std::move(arrived));
}

std::unique_ptr<EngineEnd> makeOurEngineEnd(const Addresses& addresses, Arrived arrived) {
  return std::make_unique<OurEngineEnd>(addresses, std::move(arrived));
}

}  // namespace qor::bench
