#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tamb/ElementFactory.h"

namespace tamb {

/// One factory that this process knows.
struct FactoryRegistration {
  /// Whose factory it is: the plug-in's name.
  std::string name;
  std::string coreId;
  std::shared_ptr<IElementFactory> factory;
  std::shared_ptr<const IParametersCollectionInstance> registryEntry;
  /// What the entry said when it was registered; no two registrations agree in all three.
  ElementFactoryType kind = ElementFactoryType::Undefined;
  std::string type;
  std::string implementation;
};

/// Every registration, in the order of registration. Any thread, like all operations of this header.
std::vector<FactoryRegistration> GetFactoryRegistrations();

/// The registration of that kind and type, of that implementation if one is given and else the first; empty
/// when there is none.
std::optional<FactoryRegistration> FindFactory(
    ElementFactoryType kind, const std::string& type,
    const std::optional<std::string>& implementation = std::nullopt);

/// A new engine of that type, with its command processor and its notification hub, made from `config` by the
/// factory that FindFactory finds. Throws TAMBRuntimeError when there is none, telling what is registered,
/// and when one of the three was not made. What the factory throws passes through.
ElementFactory<ElementFactoryType::Engine>::Product InstantiateEngine(
    const std::string& type, std::shared_ptr<const IParametersCollectionInstance> config,
    const std::optional<std::string>& implementation = std::nullopt);

/// Takes back everything that was registered under that name, for a plug-in that is retired, and returns how
/// many registrations there were. Elements that its factories made live on.
std::size_t UnregisterFactories(const std::string& name);

}  // namespace tamb
