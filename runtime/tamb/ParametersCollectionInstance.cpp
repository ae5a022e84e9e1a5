#include <fmt/format.h>

#include <memory>
#include <string>
#include <utility>

#include "runtime/tamb/ParameterTable.h"
#include "runtime/tamb/ParametersCollectionPrototype.h"
#include "tamb/IParametersCollection.h"
#include "tamb/TAMBRuntimeError.h"

namespace tamb {

namespace {

using PrototypePointer = std::shared_ptr<const IParametersCollectionPrototype>;

ParameterValue defaultOf(const IParametersCollectionPrototype& prototype, const std::string& key,
                         TambType type) {
  switch (type) {
    case TambType::Bool:
      return prototype.GetBoolDefault(key);
    case TambType::Int32:
      return prototype.GetInt32Default(key);
    case TambType::Int64:
      return prototype.GetInt64Default(key);
    case TambType::Uint64:
      return prototype.GetUint64Default(key);
    case TambType::Float:
      return prototype.GetFloatDefault(key);
    case TambType::Double:
      return prototype.GetDoubleDefault(key);
    case TambType::UTF8String:
      return prototype.GetUTF8StringDefault(key);
    case TambType::UTF16String:
      return prototype.GetUTF16StringDefault(key);
    case TambType::ElementFactoryType:
      return prototype.GetElementFactoryTypeDefault(key);
    case TambType::ParametersCollectionPrototype:
      return prototype.GetParametersCollectionPrototypeDefault(key);
    default:
      throw TAMBRuntimeError(fmt::format("Parameter {:?}: an instance cannot hold {}", key, ToString(type)));
  }
}

/// Adapts the table to the names and types of the interface.
class ParametersCollectionInstance : public IParametersCollectionInstance {
 public:
  explicit ParametersCollectionInstance(PrototypePointer prototype) : prototype_(std::move(prototype)) {
    if (const auto* const own = dynamic_cast<const ParametersCollectionPrototype*>(prototype_.get())) {
      table_.CopyValues(own->table());
      return;
    }
    // A foreign implementation. Its set of keys can only grow, so no lock over all of them is needed.
    for (const auto& [key, type] : prototype_->GetKeysAndTypes()) {
      table_.Add(key, defaultOf(*prototype_, key, type), "");
    }
  }

  bool GetBool(const std::string& key) const override { return table_.Get<bool>(key); }
  void SetBool(const std::string& key, bool value) override { table_.Set(key, value); }

  std::int32_t GetInt32(const std::string& key) const override { return table_.Get<std::int32_t>(key); }
  void SetInt32(const std::string& key, std::int32_t value) override { table_.Set(key, value); }

  std::int64_t GetInt64(const std::string& key) const override { return table_.Get<std::int64_t>(key); }
  void SetInt64(const std::string& key, std::int64_t value) override { table_.Set(key, value); }

  std::uint64_t GetUint64(const std::string& key) const override { return table_.Get<std::uint64_t>(key); }
  void SetUint64(const std::string& key, std::uint64_t value) override { table_.Set(key, value); }

  float GetFloat(const std::string& key) const override { return table_.Get<float>(key); }
  void SetFloat(const std::string& key, float value) override { table_.Set(key, value); }

  double GetDouble(const std::string& key) const override { return table_.Get<double>(key); }
  void SetDouble(const std::string& key, double value) override { table_.Set(key, value); }

  std::string GetUTF8String(const std::string& key) const override { return table_.Get<std::string>(key); }
  void SetUTF8String(const std::string& key, const std::string& value) override { table_.Set(key, value); }

  std::u16string GetUTF16String(const std::string& key) const override {
    return table_.Get<std::u16string>(key);
  }
  void SetUTF16String(const std::string& key, const std::u16string& value) override {
    table_.Set(key, value);
  }

  ElementFactoryType GetElementFactoryType(const std::string& key) const override {
    return table_.Get<ElementFactoryType>(key);
  }
  void SetElementFactoryType(const std::string& key, ElementFactoryType value) override {
    table_.Set(key, value);
  }

  PrototypePointer GetParametersCollectionPrototype(const std::string& key) const override {
    return table_.Get<PrototypePointer>(key);
  }
  void SetParametersCollectionPrototype(const std::string& key, PrototypePointer value) override {
    table_.Set(key, value);
  }

  bool HasKey(const std::string& key) const override { return table_.HasKey(key); }
  KeysAndTypes GetKeysAndTypes() const override { return table_.GetKeysAndTypes(); }
  PrototypePointer GetPrototype() const override { return prototype_; }

 private:
  const PrototypePointer prototype_;
  ParameterTable table_;
};

}  // namespace

std::shared_ptr<IParametersCollectionInstance> CreateParametersCollectionInstance(
    std::shared_ptr<const IParametersCollectionPrototype> prototype) {
  if (!prototype) {
    throw TAMBRuntimeError("An instance of a parameters collection needs a prototype: none was given");
  }
  return std::make_shared<ParametersCollectionInstance>(std::move(prototype));
}

}  // namespace tamb
