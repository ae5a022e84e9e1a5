// A correct plug-in: it registers one engine factory under the given name.

#include <memory>

#include "runtime/tamb/CommandProcessor.h"
#include "tamb/ElementFactory.h"
#include "tests/unit/tamb/StillEngine.h"

extern "C" void RegisterAll(const char* name) {
  using EngineFactory = tamb::ElementFactory<tamb::ElementFactoryType::Engine>;
  auto entry = tamb::CreateParametersCollectionInstance(tamb::GetRegistryEntryPrototype());
  entry->SetElementFactoryType("class", tamb::ElementFactoryType::Engine);
  entry->SetUTF8String("type", "StillEngine");
  auto factory = std::make_shared<EngineFactory>(
      [](const std::shared_ptr<const tamb::IParametersCollectionInstance>&) -> EngineFactory::Product {
        return {std::make_shared<tamb::test::StillEngine>(), tamb::CreateCommandProcessor().first,
                tamb::CreateNotificationHub().first};
      });
  tamb::RegisterFactory(name, tamb::GetTAMBCoreIdInternal("1"), factory, entry);
}
