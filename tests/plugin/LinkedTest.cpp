#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <typeinfo>

#include "runtime/tamb/EngineDescription.h"
#include "runtime/tamb/FactoryRegistry.h"
#include "tamb/TAMBRuntimeError.h"
#include "tambStepsRegistration.h"
#include "tests/support/CapturedLog.h"
#include "tests/unit/multiprocess/EngineProcess.h"
#include "tests/unit/multiprocess/SubmissionService.h"

namespace qor::multiprocess_communication {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

/// The plug-in linked by an engine's program, for its three back ends. The plug-in also creates the host's
/// side, so that both are in one process and share its schemas.
class LinkedPlugin : public ::testing::Test {
 protected:
  static constexpr const char* name = "linked";
  static constexpr const char* serviceAddress = "inproc://submission-service";

  void TearDown() override { tamb::UnregisterFactories(name); }

  static std::optional<api::ServiceToApiReply> submitted() {
    api::ServiceToApiReply reply;
    reply.set_kind(api::ServiceToApiReply::ENGINE_SUBMITTED);
    *reply.MutableExtension(api::ServiceToApiReplyEngineSubmission) = endpoints();
    return reply;
  }

  const test::CapturedLog log_;
};

TEST_F(LinkedPlugin, MakesAnEngineDrivableThatItsOwnRemoteEngineDrives) {
  EngineProcess process(endpoints());
  SubmissionService service(serviceAddress, submitted);
  RegisterAll(name);
  const auto schema =
      tamb::GetFactoryRegistrations().at(0).registryEntry->GetParametersCollectionPrototype("init_config");
  const auto config = tamb::CreateParametersCollectionInstance(schema);
  config->SetUTF8String("QorServiceEndpoint", serviceAddress);
  auto [engine, processor, hub] = tamb::InstantiateEngine("RemoteEngine", config);
  engine->SetInitConfig(config);
  engine->AddEngineDescription(std::make_shared<tamb::EngineDescription>(EngineProcess::manager, "{}", 7));
  const auto requests = service.requests.all();
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_EQ(requests.front().GetExtension(api::ApiToServiceRequestEngineSubmission).workflowmanagerid(),
            EngineProcess::manager);

  expectCarriesPings(*engine, process);
  expectCarriesCommands(*processor, process);
  expectCarriesNotifications(*hub, process);
  engine.reset();
  process.control.waitForFrontEndTermination();
  EXPECT_THAT(log_.recordsWith("timeout on frontend heartbeat"), IsEmpty());
  EXPECT_THAT(log_.recordsWith("Failed"), IsEmpty());
}

TEST_F(LinkedPlugin, HasBackEndsOfItsInterfacesWhoseTypesAreKnown) {
  EngineProcess process(endpoints());
  tamb::ICommandProcessorBackEnd& commands = process.commands;
  tamb::INotificationHubBackEnd& hub = process.hub;
  utils::IMessageFormatter& control = process.control;
  EXPECT_TRUE(typeid(commands) == typeid(TcpCommandProcessorBackEnd));
  EXPECT_TRUE(typeid(hub) == typeid(TcpNotificationHubBackEnd));
  EXPECT_TRUE(typeid(control) == typeid(TcpEngineBackEnd));
  EXPECT_EQ(control.messageHeader(), "TcpEngineBackEnd");
  // The program can catch the plug-in's exceptions by their type.
  EXPECT_THAT([&] { commands.ExecuteAllCommands(); },
              ThrowsMessage<tamb::TAMBRuntimeError>(HasSubstr("Invalid command processor back-end")));
  EXPECT_THAT([&] { hub.PushNotification(nullptr); },
              ThrowsMessage<tamb::TAMBRuntimeError>(HasSubstr("NULL notification")));
}

}  // namespace
}  // namespace qor::multiprocess_communication
