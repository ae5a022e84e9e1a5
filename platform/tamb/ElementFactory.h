#pragma once

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include "tamb/ElementFactoryType.h"
#include "tamb/ICommandProcessor.h"
#include "tamb/IEngineFrontEnd.h"
#include "tamb/INotificationHub.h"
#include "tamb/IParametersCollection.h"

namespace tamb {

/// Makes elements of one kind; what it makes them from depends on the kind: see ElementFactory. Any thread;
/// does not block or throw.
class IElementFactory {
 public:
  virtual ~IElementFactory() = default;
  virtual ElementFactoryType GetFactoryType() const = 0;
};

/// What the factories of a kind make; specialised for each kind that has factories.
template <ElementFactoryType T>
struct ElementFactoryProduct;

template <>
struct ElementFactoryProduct<ElementFactoryType::Engine> {
  using Type = std::tuple<std::shared_ptr<IEngineFrontEnd>, std::shared_ptr<ICommandProcessorFrontEnd>,
                          std::shared_ptr<INotificationHubFrontEnd>>;
};

/// The factory of kind T, around the function that makes an element from its configuration.
template <ElementFactoryType T>
class ElementFactory : public IElementFactory {
 public:
  using Product = typename ElementFactoryProduct<T>::Type;
  using CreationFunction = std::function<Product(std::shared_ptr<const IParametersCollectionInstance>)>;

  explicit ElementFactory(CreationFunction create) : create_(std::move(create)) {}

  ElementFactoryType GetFactoryType() const override { return T; }

  /// A new element. Any thread, if the creation function allows it; blocks as it does, and its exceptions
  /// pass through.
  Product Create(std::shared_ptr<const IParametersCollectionInstance> config) const {
    return create_(std::move(config));
  }

 private:
  CreationFunction create_;
};

/// The schema of a registry entry: "class" (ElementFactoryType), "type", "implementation" (UTF8String) and
/// "init_config" (ParametersCollectionPrototype), in this order. Any thread.
std::shared_ptr<const IParametersCollectionPrototype> GetRegistryEntryPrototype();

/// The text by which a factory states which framework version it was built for. Any thread.
std::string GetTAMBCoreIdInternal(std::string version);

/// Makes a factory known to this process under `registryEntry`. Throws TAMBRuntimeError when the factory or
/// the entry is empty, when the entry's "class" is not the factory's kind, or when the same class, type and
/// implementation are registered already. Any thread.
void RegisterFactory(std::string name, std::string coreId, std::shared_ptr<IElementFactory> factory,
                     std::shared_ptr<const IParametersCollectionInstance> registryEntry);

}  // namespace tamb
