#include "runtime/tamb/FactoryRegistry.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "runtime/base/Mutex.h"
#include "tamb/TAMBRuntimeError.h"

namespace tamb {

namespace {

struct Registry {
  qor::base::Mutex mutex;
  std::vector<FactoryRegistration> registrations QOR_GUARDED_BY(mutex);
};

/// Never destroyed: a factory's code belongs to its plug-in, whose statics may be destroyed before ours.
Registry& registry() {
  static auto& instance = *new Registry;
  return instance;
}

std::string describe(ElementFactoryType kind) {
  return kind == ElementFactoryType::Engine ? "engine" : fmt::format("kind {}", static_cast<int>(kind));
}

std::string describe(const FactoryRegistration& registration) {
  return fmt::format("{} {:?} of implementation {:?}", describe(registration.kind), registration.type,
                     registration.implementation);
}

/// The registered engines, for an error text.
std::string registeredEngines() {
  std::vector<std::string> engines;
  for (const auto& registration : GetFactoryRegistrations()) {
    if (registration.kind == ElementFactoryType::Engine) {
      engines.push_back(fmt::format("{:?} of implementation {:?} by {:?}", registration.type,
                                    registration.implementation, registration.name));
    }
  }
  return engines.empty() ? "nor is any other" : fmt::format("but {}", fmt::join(engines, ", "));
}

}  // namespace

void RegisterFactory(std::string name, std::string coreId, std::shared_ptr<IElementFactory> factory,
                     std::shared_ptr<const IParametersCollectionInstance> registryEntry) {
  if (!factory || !registryEntry) {
    throw TAMBRuntimeError(fmt::format("Factory of {:?}: it is registered without a {}", name,
                                       factory ? "registry entry" : "factory"));
  }
  FactoryRegistration registration;
  registration.kind = registryEntry->GetElementFactoryType("class");
  registration.type = registryEntry->GetUTF8String("type");
  registration.implementation = registryEntry->GetUTF8String("implementation");
  if (registration.kind != factory->GetFactoryType()) {
    throw TAMBRuntimeError(
        fmt::format("Factory of {:?}: its registry entry says {}, but it makes elements of {}", name,
                    describe(registration), describe(factory->GetFactoryType())));
  }
  registration.name = std::move(name);
  registration.coreId = std::move(coreId);
  registration.factory = std::move(factory);
  registration.registryEntry = std::move(registryEntry);

  Registry& known = registry();
  const qor::base::Lock lock(known.mutex);
  for (const auto& other : known.registrations) {
    if (other.kind == registration.kind && other.type == registration.type &&
        other.implementation == registration.implementation) {
      throw TAMBRuntimeError(fmt::format("Factory of {:?}: {} is already registered by {:?}",
                                         registration.name, describe(registration), other.name));
    }
  }
  known.registrations.push_back(std::move(registration));
}

std::vector<FactoryRegistration> GetFactoryRegistrations() {
  Registry& known = registry();
  const qor::base::Lock lock(known.mutex);
  return known.registrations;
}

std::optional<FactoryRegistration> FindFactory(ElementFactoryType kind, const std::string& type,
                                               const std::optional<std::string>& implementation) {
  Registry& known = registry();
  const qor::base::Lock lock(known.mutex);
  const auto found =
      std::find_if(known.registrations.begin(), known.registrations.end(), [&](const auto& registration) {
        return registration.kind == kind && registration.type == type &&
               (!implementation || registration.implementation == *implementation);
      });
  return found == known.registrations.end() ? std::nullopt : std::optional(*found);
}

ElementFactory<ElementFactoryType::Engine>::Product InstantiateEngine(
    const std::string& type, std::shared_ptr<const IParametersCollectionInstance> config,
    const std::optional<std::string>& implementation) {
  const auto registration = FindFactory(ElementFactoryType::Engine, type, implementation);
  if (!registration) {
    throw TAMBRuntimeError(fmt::format(
        "No engine {:?}{} is registered, {}", type,
        implementation ? fmt::format(" of implementation {:?}", *implementation) : "", registeredEngines()));
  }
  const auto factory =
      std::dynamic_pointer_cast<const ElementFactory<ElementFactoryType::Engine>>(registration->factory);
  if (!factory) {
    throw TAMBRuntimeError(fmt::format("The factory of {} by {:?} is not an engine factory",
                                       describe(*registration), registration->name));
  }
  auto product = factory->Create(std::move(config));
  const auto& [engine, commandProcessor, notificationHub] = product;
  if (!engine || !commandProcessor || !notificationHub) {
    throw TAMBRuntimeError(fmt::format("The factory of {} by {:?} made no {}", describe(*registration),
                                       registration->name,
                                       !engine             ? "engine"
                                       : !commandProcessor ? "command processor"
                                                           : "notification hub"));
  }
  return product;
}

std::size_t UnregisterFactories(const std::string& name) {
  std::vector<FactoryRegistration> retired;  // Factories may be foreign classes: destroyed without the lock.
  Registry& known = registry();
  const qor::base::Lock lock(known.mutex);
  auto& registrations = known.registrations;
  const auto first =
      std::stable_partition(registrations.begin(), registrations.end(),
                            [&](const auto& registration) { return registration.name != name; });
  std::move(first, registrations.end(), std::back_inserter(retired));
  registrations.erase(first, registrations.end());
  return retired.size();
}

}  // namespace tamb
