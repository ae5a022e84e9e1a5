#include "tambStepsRegistration.h"

#include <exception>
#include <string>
#include <utility>

#include "Checks.h"
#include "RemoteEngineFrontEnd.h"

namespace qor::multiprocess_communication {

namespace {

using Factory = tamb::ElementFactory<tamb::ElementFactoryType::Engine>;

/// The framework version that this library is built for.
constexpr const char* coreVersion = "0.7.16.249.80659";
constexpr ReportSite failedRegistration{"src/tambStepsRegistration", 32};

}  // namespace

// As the factory calls it, with what is ignored.
// NOLINTBEGIN(performance-unnecessary-value-param)
Factory::Product InstantiateRemoteEngine(
    std::shared_ptr<const tamb::IParametersCollectionInstance> /*config*/) {
  // NOLINTEND(performance-unnecessary-value-param)
  auto engine = std::make_shared<RemoteEngineFrontEnd>();
  auto commands = engine->commandProxy();
  auto notifications = engine->notificationProxy();
  return {std::move(engine), std::move(commands), std::move(notifications)};
}

void RegisterRemoteEngine(const char* name) {
  try {
    const auto entry = tamb::CreateParametersCollectionInstance(tamb::GetRegistryEntryPrototype());
    const auto configuration = RemoteEngineFrontEnd::GetParametersCollectionPrototype();
    entry->SetElementFactoryType("class", tamb::ElementFactoryType::Engine);
    entry->SetUTF8String("type", "RemoteEngine");
    entry->SetUTF8String("implementation", "tamb_multiprocess");
    entry->SetParametersCollectionPrototype("init_config", configuration);
    const auto factory = std::make_shared<Factory>(InstantiateRemoteEngine);
    const std::string coreId = tamb::GetTAMBCoreIdInternal(coreVersion);
    tamb::RegisterFactory(std::string(name), coreId, factory, entry);
  } catch (const std::exception& error) {
    report(tamb::LogLevel::Error, std::string("RegisterRemoteEngine failed: ") + error.what(),
           failedRegistration);
  }
}

}  // namespace qor::multiprocess_communication

void RegisterAll(const char* name) { qor::multiprocess_communication::RegisterRemoteEngine(name); }
