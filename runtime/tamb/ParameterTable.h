#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

#include "runtime/base/Mutex.h"
#include "tamb/ElementFactoryType.h"
#include "tamb/IParametersCollection.h"
#include "tamb/TambType.h"

namespace tamb {

/// A value of any type that parameters collections support.
using ParameterValue =
    std::variant<bool, std::int32_t, std::int64_t, std::uint64_t, float, double, std::string, std::u16string,
                 ElementFactoryType, std::shared_ptr<const IParametersCollectionPrototype>>;

/// The tag of the type of `value`.
inline TambType TypeOf(const ParameterValue& value) {
  constexpr std::array<TambType, std::variant_size_v<ParameterValue>> tags = {
      TambType::Bool,
      TambType::Int32,
      TambType::Int64,
      TambType::Uint64,
      TambType::Float,
      TambType::Double,
      TambType::UTF8String,
      TambType::UTF16String,
      TambType::ElementFactoryType,
      TambType::ParametersCollectionPrototype,
  };
  return tags[value.index()];
}

/// Described values by key, in the order in which they were added; the type of a key never changes. The
/// common part of prototypes and instances: errors and threads are as in their interfaces.
class ParameterTable {
 public:
  void Add(const std::string& key, ParameterValue value, const std::string& description);

  /// Copies the other table's keys and values, without the descriptions. Call it only before this table is
  /// shared.
  void CopyValues(const ParameterTable& other);

  template <typename T>
  T Get(const std::string& key) const {
    const qor::base::Lock lock(mutex_);
    return HeldValue<T>(*this, key);
  }

  template <typename T>
  void Set(const std::string& key, const T& value) {
    const qor::base::Lock lock(mutex_);
    HeldValue<T>(*this, key) = value;
  }

  bool HasKey(const std::string& key) const;
  std::string GetDescription(const std::string& key) const;
  KeysAndTypes GetKeysAndTypes() const;

 private:
  struct Parameter {
    std::string key;
    ParameterValue value;
    std::string description;
  };

  /// Collections of up to this many parameters are searched linearly: most are small, and are created and
  /// destroyed with every command.
  static constexpr std::size_t searchedFromTheFront = 8;

  /// The number of parameters if the key does not exist.
  std::size_t PositionOf(const std::string& key) const QOR_REQUIRES(mutex_);

  /// The value in a const or non-const table.
  template <typename T, typename Table>
  static auto& HeldValue(Table& table, const std::string& key) QOR_REQUIRES(table.mutex_) {
    const std::size_t position = table.PositionOf(key);
    auto* const value =
        position == table.parameters_.size() ? nullptr : std::get_if<T>(&table.parameters_[position].value);
    if (value == nullptr) {
      table.ThrowMismatch(key, TypeOf(ParameterValue(std::in_place_type<T>)));
    }
    return *value;
  }

  [[noreturn]] void ThrowMismatch(const std::string& key, TambType asked) const QOR_REQUIRES(mutex_);

  mutable qor::base::Mutex mutex_;
  std::vector<Parameter> parameters_ QOR_GUARDED_BY(mutex_);
  /// Index by key, for large collections.
  std::unordered_map<std::string, std::size_t> positions_ QOR_GUARDED_BY(mutex_);
};

}  // namespace tamb
