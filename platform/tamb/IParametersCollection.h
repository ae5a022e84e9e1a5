#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tamb/ElementFactoryType.h"
#include "tamb/TambType.h"

namespace tamb {

/// The keys of a collection with their types, in the collection's own order.
using KeysAndTypes = std::vector<std::pair<std::string, TambType>>;

/// A schema: typed keys with default values and descriptions, in the order in which they were declared.
/// Keys, strings and descriptions are byte strings.
///
/// Declaring a key twice, reading an undeclared key, or reading a key as another type throws TAMBRuntimeError
/// with the key, its type and the requested type. Any thread; does not block.
class IParametersCollectionPrototype {
 public:
  virtual ~IParametersCollectionPrototype() = default;

  virtual KeysAndTypes GetKeysAndTypes() const = 0;
  virtual void AddBoolKey(const std::string& key, bool defaultValue, const std::string& description) = 0;
  virtual bool GetBoolDefault(const std::string& key) const = 0;
  virtual void AddInt32Key(const std::string& key, std::int32_t defaultValue,
                           const std::string& description) = 0;
  virtual std::int32_t GetInt32Default(const std::string& key) const = 0;
  virtual void AddInt64Key(const std::string& key, std::int64_t defaultValue,
                           const std::string& description) = 0;
  virtual std::int64_t GetInt64Default(const std::string& key) const = 0;
  virtual void AddUint64Key(const std::string& key, std::uint64_t defaultValue,
                            const std::string& description) = 0;
  virtual std::uint64_t GetUint64Default(const std::string& key) const = 0;
  virtual void AddFloatKey(const std::string& key, float defaultValue, const std::string& description) = 0;
  virtual float GetFloatDefault(const std::string& key) const = 0;
  virtual void AddDoubleKey(const std::string& key, double defaultValue, const std::string& description) = 0;
  virtual double GetDoubleDefault(const std::string& key) const = 0;
  virtual void AddUTF8StringKey(const std::string& key, const std::string& defaultValue,
                                const std::string& description) = 0;
  virtual std::string GetUTF8StringDefault(const std::string& key) const = 0;
  virtual void AddUTF16StringKey(const std::string& key, const std::u16string& defaultValue,
                                 const std::string& description) = 0;
  virtual std::u16string GetUTF16StringDefault(const std::string& key) const = 0;
  virtual void AddElementFactoryTypeKey(const std::string& key, ElementFactoryType defaultValue,
                                        const std::string& description) = 0;
  virtual ElementFactoryType GetElementFactoryTypeDefault(const std::string& key) const = 0;
  virtual void AddParametersCollectionPrototypeKey(
      const std::string& key, std::shared_ptr<const IParametersCollectionPrototype> defaultValue,
      const std::string& description) = 0;
  virtual std::shared_ptr<const IParametersCollectionPrototype> GetParametersCollectionPrototypeDefault(
      const std::string& key) const = 0;
  virtual bool HasKey(const std::string& key) const = 0;
  virtual std::string GetDescription(const std::string& key) const = 0;
};

/// Values for the keys of one prototype. A key has the prototype's default until it is set; the keys are
/// those that the prototype had when the instance was created. Errors and threads as for the prototype.
class IParametersCollectionInstance {
 public:
  virtual ~IParametersCollectionInstance() = default;

  virtual bool GetBool(const std::string& key) const = 0;
  virtual void SetBool(const std::string& key, bool value) = 0;
  virtual std::int32_t GetInt32(const std::string& key) const = 0;
  virtual void SetInt32(const std::string& key, std::int32_t value) = 0;
  virtual std::int64_t GetInt64(const std::string& key) const = 0;
  virtual void SetInt64(const std::string& key, std::int64_t value) = 0;
  virtual std::uint64_t GetUint64(const std::string& key) const = 0;
  virtual void SetUint64(const std::string& key, std::uint64_t value) = 0;
  virtual float GetFloat(const std::string& key) const = 0;
  virtual void SetFloat(const std::string& key, float value) = 0;
  virtual double GetDouble(const std::string& key) const = 0;
  virtual void SetDouble(const std::string& key, double value) = 0;
  virtual std::string GetUTF8String(const std::string& key) const = 0;
  virtual void SetUTF8String(const std::string& key, const std::string& value) = 0;
  virtual std::u16string GetUTF16String(const std::string& key) const = 0;
  virtual void SetUTF16String(const std::string& key, const std::u16string& value) = 0;
  virtual ElementFactoryType GetElementFactoryType(const std::string& key) const = 0;
  virtual void SetElementFactoryType(const std::string& key, ElementFactoryType value) = 0;
  virtual std::shared_ptr<const IParametersCollectionPrototype> GetParametersCollectionPrototype(
      const std::string& key) const = 0;
  virtual void SetParametersCollectionPrototype(
      const std::string& key, std::shared_ptr<const IParametersCollectionPrototype> value) = 0;
  virtual bool HasKey(const std::string& key) const = 0;
  virtual KeysAndTypes GetKeysAndTypes() const = 0;
  virtual std::shared_ptr<const IParametersCollectionPrototype> GetPrototype() const = 0;
};

/// A new prototype without keys. Any thread.
std::shared_ptr<IParametersCollectionPrototype> CreateParametersCollectionPrototype();

/// A new instance with the defaults of `prototype`; throws TAMBRuntimeError if that is empty. Any thread.
std::shared_ptr<IParametersCollectionInstance> CreateParametersCollectionInstance(
    std::shared_ptr<const IParametersCollectionPrototype> prototype);

}  // namespace tamb
