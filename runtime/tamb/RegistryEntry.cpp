#include <fmt/format.h>

#include "tamb/ElementFactory.h"

namespace tamb {

std::shared_ptr<const IParametersCollectionPrototype> GetRegistryEntryPrototype() {
  // Never destroyed, like the registry: plug-ins may register and retire while the process exits.
  static const auto& prototype = *new std::shared_ptr<const IParametersCollectionPrototype>([] {
    auto entry = CreateParametersCollectionPrototype();
    entry->AddElementFactoryTypeKey("class", ElementFactoryType::Undefined, "What the factory makes");
    entry->AddUTF8StringKey("type", "", "The name that users ask for");
    entry->AddUTF8StringKey("implementation", "", "Which of several factories of that name this is");
    entry->AddParametersCollectionPrototypeKey("init_config", nullptr, "The element's configuration keys");
    return entry;
  }());
  return prototype;
}

std::string GetTAMBCoreIdInternal(std::string version) { return fmt::format("TAMB core {}", version); }

}  // namespace tamb
