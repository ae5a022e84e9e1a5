#include "runtime/tamb/ParameterTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "tamb/TAMBRuntimeError.h"

namespace tamb {

void ParameterTable::Add(const std::string& key, ParameterValue value, const std::string& description) {
  const qor::base::Lock lock(mutex_);
  if (const auto position = PositionOf(key); position != parameters_.size()) {
    throw TAMBRuntimeError(fmt::format("Parameter {:?} already exists as {}: it cannot be added as {}", key,
                                       ToString(TypeOf(parameters_[position].value)),
                                       ToString(TypeOf(value))));
  }
  if (parameters_.empty()) parameters_.reserve(searchedFromTheFront);
  parameters_.push_back({key, std::move(value), description});
  if (parameters_.size() <= searchedFromTheFront) return;
  try {
    for (auto i = positions_.size(); i < parameters_.size(); ++i) positions_.emplace(parameters_[i].key, i);
  } catch (...) {
    parameters_.pop_back();  // without its index entry it could not be found
    throw;
  }
}

void ParameterTable::CopyValues(const ParameterTable& other) {
  mutex_.assumeNotShared();
  const qor::base::Lock lock(other.mutex_);
  parameters_.reserve(other.parameters_.size());
  for (const Parameter& parameter : other.parameters_)
    parameters_.push_back({parameter.key, parameter.value, {}});
  positions_ = other.positions_;
}

bool ParameterTable::HasKey(const std::string& key) const {
  const qor::base::Lock lock(mutex_);
  return PositionOf(key) != parameters_.size();
}

std::string ParameterTable::GetDescription(const std::string& key) const {
  const qor::base::Lock lock(mutex_);
  const auto position = PositionOf(key);
  if (position == parameters_.size()) {
    throw TAMBRuntimeError(fmt::format("Unknown parameter {:?}, cannot be described", key));
  }
  return parameters_[position].description;
}

KeysAndTypes ParameterTable::GetKeysAndTypes() const {
  const qor::base::Lock lock(mutex_);
  KeysAndTypes keysAndTypes;
  keysAndTypes.reserve(parameters_.size());
  for (const auto& parameter : parameters_) {
    keysAndTypes.emplace_back(parameter.key, TypeOf(parameter.value));
  }
  return keysAndTypes;
}

std::size_t ParameterTable::PositionOf(const std::string& key) const {
  if (parameters_.size() > searchedFromTheFront) {
    const auto found = positions_.find(key);
    return found == positions_.end() ? parameters_.size() : found->second;
  }
  const auto found = std::find_if(parameters_.begin(), parameters_.end(),
                                  [&](const Parameter& parameter) { return parameter.key == key; });
  return static_cast<std::size_t>(found - parameters_.begin());
}

void ParameterTable::ThrowMismatch(const std::string& key, TambType asked) const {
  const auto position = PositionOf(key);
  if (position == parameters_.size()) {
    throw TAMBRuntimeError(fmt::format("Unknown parameter {:?}, requested as {}", key, ToString(asked)));
  }
  throw TAMBRuntimeError(fmt::format("Parameter {:?} is held as {}, requested as {}", key,
                                     ToString(TypeOf(parameters_[position].value)), ToString(asked)));
}

}  // namespace tamb
