#include "tests/unit/multiprocess/OwnFramework.h"

#include "tests/support/MockCollections.h"

namespace qor::multiprocess_communication {

namespace {

void enter(const char* function) {
  if (const auto& before = OwnFramework::get().before) before(function);
}

}  // namespace

OwnFramework& OwnFramework::get() {
  static OwnFramework framework;
  return framework;
}

}  // namespace qor::multiprocess_communication

// As platform/ declares them, with parameters that are not read.
// NOLINTBEGIN(performance-unnecessary-value-param)
namespace tamb {

using qor::multiprocess_communication::enter;
using qor::multiprocess_communication::OwnFramework;

std::shared_ptr<IParametersCollectionPrototype> CreateParametersCollectionPrototype() {
  enter("CreateParametersCollectionPrototype");
  return std::make_shared<testing::NiceMock<qor::test::MockPrototype>>();
}

std::shared_ptr<IParametersCollectionInstance> CreateParametersCollectionInstance(
    std::shared_ptr<const IParametersCollectionPrototype> /*prototype*/) {
  enter("CreateParametersCollectionInstance");
  if (OwnFramework::get().instance) return OwnFramework::get().instance;
  return std::make_shared<testing::NiceMock<qor::test::MockInstance>>();
}

std::shared_ptr<const IParametersCollectionPrototype> GetRegistryEntryPrototype() {
  enter("GetRegistryEntryPrototype");
  return std::make_shared<testing::NiceMock<qor::test::MockPrototype>>();
}

std::string GetTAMBCoreIdInternal(std::string version) {
  enter("GetTAMBCoreIdInternal");
  return "core of " + version;
}

void RegisterFactory(std::string name, std::string /*coreId*/, std::shared_ptr<IElementFactory> /*factory*/,
                     std::shared_ptr<const IParametersCollectionInstance> /*registryEntry*/) {
  enter("RegisterFactory");
  OwnFramework::get().registered.push_back(std::move(name));
}

}  // namespace tamb
// NOLINTEND(performance-unnecessary-value-param)
