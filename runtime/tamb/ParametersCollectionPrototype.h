#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "runtime/tamb/ParameterTable.h"
#include "tamb/IParametersCollection.h"

namespace tamb {

/// Adapts the table to the names and types of the interface; the defaults are the table's values.
class ParametersCollectionPrototype final : public IParametersCollectionPrototype {
 public:
  void AddBoolKey(const std::string& key, bool defaultValue, const std::string& description) override {
    table_.Add(key, defaultValue, description);
  }
  bool GetBoolDefault(const std::string& key) const override { return table_.Get<bool>(key); }

  void AddInt32Key(const std::string& key, std::int32_t defaultValue,
                   const std::string& description) override {
    table_.Add(key, defaultValue, description);
  }
  std::int32_t GetInt32Default(const std::string& key) const override {
    return table_.Get<std::int32_t>(key);
  }

  void AddInt64Key(const std::string& key, std::int64_t defaultValue,
                   const std::string& description) override {
    table_.Add(key, defaultValue, description);
  }
  std::int64_t GetInt64Default(const std::string& key) const override {
    return table_.Get<std::int64_t>(key);
  }

  void AddUint64Key(const std::string& key, std::uint64_t defaultValue,
                    const std::string& description) override {
    table_.Add(key, defaultValue, description);
  }
  std::uint64_t GetUint64Default(const std::string& key) const override {
    return table_.Get<std::uint64_t>(key);
  }

  void AddFloatKey(const std::string& key, float defaultValue, const std::string& description) override {
    table_.Add(key, defaultValue, description);
  }
  float GetFloatDefault(const std::string& key) const override { return table_.Get<float>(key); }

  void AddDoubleKey(const std::string& key, double defaultValue, const std::string& description) override {
    table_.Add(key, defaultValue, description);
  }
  double GetDoubleDefault(const std::string& key) const override { return table_.Get<double>(key); }

  void AddUTF8StringKey(const std::string& key, const std::string& defaultValue,
                        const std::string& description) override {
    table_.Add(key, defaultValue, description);
  }
  std::string GetUTF8StringDefault(const std::string& key) const override {
    return table_.Get<std::string>(key);
  }

  void AddUTF16StringKey(const std::string& key, const std::u16string& defaultValue,
                         const std::string& description) override {
    table_.Add(key, defaultValue, description);
  }
  std::u16string GetUTF16StringDefault(const std::string& key) const override {
    return table_.Get<std::u16string>(key);
  }

  void AddElementFactoryTypeKey(const std::string& key, ElementFactoryType defaultValue,
                                const std::string& description) override {
    table_.Add(key, defaultValue, description);
  }
  ElementFactoryType GetElementFactoryTypeDefault(const std::string& key) const override {
    return table_.Get<ElementFactoryType>(key);
  }

  void AddParametersCollectionPrototypeKey(const std::string& key,
                                           std::shared_ptr<const IParametersCollectionPrototype> defaultValue,
                                           const std::string& description) override {
    table_.Add(key, std::move(defaultValue), description);
  }
  std::shared_ptr<const IParametersCollectionPrototype> GetParametersCollectionPrototypeDefault(
      const std::string& key) const override {
    return table_.Get<std::shared_ptr<const IParametersCollectionPrototype>>(key);
  }

  KeysAndTypes GetKeysAndTypes() const override { return table_.GetKeysAndTypes(); }
  bool HasKey(const std::string& key) const override { return table_.HasKey(key); }
  std::string GetDescription(const std::string& key) const override { return table_.GetDescription(key); }

  const ParameterTable& table() const { return table_; }

 private:
  ParameterTable table_;
};

}  // namespace tamb
