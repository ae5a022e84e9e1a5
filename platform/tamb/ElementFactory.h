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

/// Creates elements of one kind; the arguments depend on the kind: see ElementFactory. Any thread; does not
/// block or throw.
class IElementFactory {
 public:
  virtual ~IElementFactory() = default;
  virtual ElementFactoryType GetFactoryType() const = 0;
};

/// The results of the factories of a kind; specialised for each kind that has factories.
template <ElementFactoryType T>
struct ElementFactoryProduct;

template <>
struct ElementFactoryProduct<ElementFactoryType::Engine> {
  using Type = std::tuple<std::shared_ptr<IEngineFrontEnd>, std::shared_ptr<ICommandProcessorFrontEnd>,
                          std::shared_ptr<INotificationHubFrontEnd>>;
};

/// The factory of kind T; wraps the function that creates an element from its configuration.
template <ElementFactoryType T>
class ElementFactory : public IElementFactory {
 public:
  using Product = typename ElementFactoryProduct<T>::Type;
  using CreationFunction = std::function<Product(std::shared_ptr<const IParametersCollectionInstance>)>;

  explicit ElementFactory(CreationFunction create) : create_(std::move(create)) {}

  ElementFactoryType GetFactoryType() const override { return T; }

  /// A new element. Any thread, if the creation function allows it; blocks as it does, and passes its
  /// exceptions on.
  Product Create(std::shared_ptr<const IParametersCollectionInstance> config) const {
    return create_(std::move(config));
  }

 private:
  CreationFunction create_;
};

/// The schema of a registry entry: "class" (ElementFactoryType), "type", "implementation" (UTF8String) and
/// "init_config" (ParametersCollectionPrototype), in this order. Any thread.
std::shared_ptr<const IParametersCollectionPrototype> GetRegistryEntryPrototype();

/// The text that states the framework version a factory was built for. Any thread.
std::string GetTAMBCoreIdInternal(std::string version);

/// Registers a factory in this process under `registryEntry`. Throws TAMBRuntimeError if the factory or the
/// entry is empty, if the entry's "class" is not the factory's kind, or if the same class, type and
/// implementation are already registered. Any thread.
void RegisterFactory(std::string name, std::string coreId, std::shared_ptr<IElementFactory> factory,
                     std::shared_ptr<const IParametersCollectionInstance> registryEntry);

}  // namespace tamb
