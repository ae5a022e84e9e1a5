#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tamb/ElementFactory.h"

namespace tamb {

/// One registered factory of this process.
struct FactoryRegistration {
  /// The name of the plug-in that registered it.
  std::string name;
  std::string coreId;
  std::shared_ptr<IElementFactory> factory;
  std::shared_ptr<const IParametersCollectionInstance> registryEntry;
  /// The entry's values at registration; two registrations never have all three in common.
  ElementFactoryType kind = ElementFactoryType::Undefined;
  std::string type;
  std::string implementation;
};

/// Every registration, in the order of registration. Any thread, like all operations of this header.
std::vector<FactoryRegistration> GetFactoryRegistrations();

/// The registration of that kind and type with the given implementation, or the first one without it; empty
/// if there is none.
std::optional<FactoryRegistration> FindFactory(
    ElementFactoryType kind, const std::string& type,
    const std::optional<std::string>& implementation = std::nullopt);

/// A new engine of that type, with its command processor and its notification hub, created from `config` by
/// the factory that FindFactory finds. Throws TAMBRuntimeError with the registered types if there is none,
/// and if the factory did not create one of the three. Passes exceptions of the factory on.
ElementFactory<ElementFactoryType::Engine>::Product InstantiateEngine(
    const std::string& type, std::shared_ptr<const IParametersCollectionInstance> config,
    const std::optional<std::string>& implementation = std::nullopt);

/// Removes all registrations of a plug-in by its name, and returns their number. Elements that its factories
/// created stay alive.
std::size_t UnregisterFactories(const std::string& name);

}  // namespace tamb
