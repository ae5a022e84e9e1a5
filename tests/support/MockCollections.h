#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <memory>
#include <string>

#include "tamb/IParametersCollection.h"

namespace qor::test {

/// Collections with arbitrary keys, types and values, including those that the framework never creates. Their
/// many mocked functions are compiled once, with the destructors.
class MockPrototype : public tamb::IParametersCollectionPrototype {
 public:
  using Key = const std::string&;
  using Prototype = std::shared_ptr<const tamb::IParametersCollectionPrototype>;

  MockPrototype();
  ~MockPrototype() override;
  MockPrototype(const MockPrototype&) = delete;
  MockPrototype& operator=(const MockPrototype&) = delete;

  MOCK_METHOD(tamb::KeysAndTypes, GetKeysAndTypes, (), (const, override));
  MOCK_METHOD(void, AddBoolKey, (Key, bool, Key), (override));
  MOCK_METHOD(bool, GetBoolDefault, (Key), (const, override));
  MOCK_METHOD(void, AddInt32Key, (Key, std::int32_t, Key), (override));
  MOCK_METHOD(std::int32_t, GetInt32Default, (Key), (const, override));
  MOCK_METHOD(void, AddInt64Key, (Key, std::int64_t, Key), (override));
  MOCK_METHOD(std::int64_t, GetInt64Default, (Key), (const, override));
  MOCK_METHOD(void, AddUint64Key, (Key, std::uint64_t, Key), (override));
  MOCK_METHOD(std::uint64_t, GetUint64Default, (Key), (const, override));
  MOCK_METHOD(void, AddFloatKey, (Key, float, Key), (override));
  MOCK_METHOD(float, GetFloatDefault, (Key), (const, override));
  MOCK_METHOD(void, AddDoubleKey, (Key, double, Key), (override));
  MOCK_METHOD(double, GetDoubleDefault, (Key), (const, override));
  MOCK_METHOD(void, AddUTF8StringKey, (Key, const std::string&, Key), (override));
  MOCK_METHOD(std::string, GetUTF8StringDefault, (Key), (const, override));
  MOCK_METHOD(void, AddUTF16StringKey, (Key, const std::u16string&, Key), (override));
  MOCK_METHOD(std::u16string, GetUTF16StringDefault, (Key), (const, override));
  MOCK_METHOD(void, AddElementFactoryTypeKey, (Key, tamb::ElementFactoryType, Key), (override));
  MOCK_METHOD(tamb::ElementFactoryType, GetElementFactoryTypeDefault, (Key), (const, override));
  MOCK_METHOD(void, AddParametersCollectionPrototypeKey, (Key, Prototype, Key), (override));
  MOCK_METHOD(Prototype, GetParametersCollectionPrototypeDefault, (Key), (const, override));
  MOCK_METHOD(bool, HasKey, (Key), (const, override));
  MOCK_METHOD(std::string, GetDescription, (Key), (const, override));
};

class MockInstance : public tamb::IParametersCollectionInstance {
 public:
  using Key = const std::string&;
  using Prototype = std::shared_ptr<const tamb::IParametersCollectionPrototype>;

  MockInstance();
  ~MockInstance() override;
  MockInstance(const MockInstance&) = delete;
  MockInstance& operator=(const MockInstance&) = delete;

  MOCK_METHOD(bool, GetBool, (Key), (const, override));
  MOCK_METHOD(void, SetBool, (Key, bool), (override));
  MOCK_METHOD(std::int32_t, GetInt32, (Key), (const, override));
  MOCK_METHOD(void, SetInt32, (Key, std::int32_t), (override));
  MOCK_METHOD(std::int64_t, GetInt64, (Key), (const, override));
  MOCK_METHOD(void, SetInt64, (Key, std::int64_t), (override));
  MOCK_METHOD(std::uint64_t, GetUint64, (Key), (const, override));
  MOCK_METHOD(void, SetUint64, (Key, std::uint64_t), (override));
  MOCK_METHOD(float, GetFloat, (Key), (const, override));
  MOCK_METHOD(void, SetFloat, (Key, float), (override));
  MOCK_METHOD(double, GetDouble, (Key), (const, override));
  MOCK_METHOD(void, SetDouble, (Key, double), (override));
  MOCK_METHOD(std::string, GetUTF8String, (Key), (const, override));
  MOCK_METHOD(void, SetUTF8String, (Key, const std::string&), (override));
  MOCK_METHOD(std::u16string, GetUTF16String, (Key), (const, override));
  MOCK_METHOD(void, SetUTF16String, (Key, const std::u16string&), (override));
  MOCK_METHOD(tamb::ElementFactoryType, GetElementFactoryType, (Key), (const, override));
  MOCK_METHOD(void, SetElementFactoryType, (Key, tamb::ElementFactoryType), (override));
  MOCK_METHOD(Prototype, GetParametersCollectionPrototype, (Key), (const, override));
  MOCK_METHOD(void, SetParametersCollectionPrototype, (Key, Prototype), (override));
  MOCK_METHOD(bool, HasKey, (Key), (const, override));
  MOCK_METHOD(tamb::KeysAndTypes, GetKeysAndTypes, (), (const, override));
  MOCK_METHOD(Prototype, GetPrototype, (), (const, override));
};

}  // namespace qor::test
