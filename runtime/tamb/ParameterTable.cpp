#include "runtime/tamb/ParameterTable.h"

#include <fmt/format.h>

#include <utility>

#include "tamb/TAMBRuntimeError.h"

namespace tamb {

void ParameterTable::Add(const std::string& key, ParameterValue value, const std::string& description) {
  const std::lock_guard lock(mutex_);
  if (const auto* held = Find(key)) {
    throw TAMBRuntimeError(fmt::format("Parameter {:?} exists already as {}: it cannot be added as {}", key,
                                       ToString(TypeOf(held->value)), ToString(TypeOf(value))));
  }
  parameters_.push_back({key, std::move(value), description});
  positions_.emplace(key, parameters_.size() - 1);
}

bool ParameterTable::HasKey(const std::string& key) const {
  const std::lock_guard lock(mutex_);
  return Find(key) != nullptr;
}

std::string ParameterTable::GetDescription(const std::string& key) const {
  const std::lock_guard lock(mutex_);
  const auto* parameter = Find(key);
  if (parameter == nullptr) {
    throw TAMBRuntimeError(fmt::format("There is no parameter {:?} to describe", key));
  }
  return parameter->description;
}

KeysAndTypes ParameterTable::GetKeysAndTypes() const {
  const std::lock_guard lock(mutex_);
  KeysAndTypes keysAndTypes;
  keysAndTypes.reserve(parameters_.size());
  for (const auto& parameter : parameters_) {
    keysAndTypes.emplace_back(parameter.key, TypeOf(parameter.value));
  }
  return keysAndTypes;
}

const ParameterTable::Parameter* ParameterTable::Find(const std::string& key) const {
  const auto position = positions_.find(key);
  return position == positions_.end() ? nullptr : &parameters_[position->second];
}

void ParameterTable::ThrowMismatch(const std::string& key, TambType asked) const {
  const auto* held = Find(key);
  if (held == nullptr) {
    throw TAMBRuntimeError(
        fmt::format("There is no parameter {:?}: it was asked for as {}", key, ToString(asked)));
  }
  throw TAMBRuntimeError(fmt::format("Parameter {:?} is held as {}: it cannot be asked for as {}", key,
                                     ToString(TypeOf(held->value)), ToString(asked)));
}

}  // namespace tamb
