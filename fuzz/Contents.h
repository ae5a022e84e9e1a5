#pragma once

#include <memory>
#include <stdexcept>

#include "Serializers.h"
#include "fuzz/Reception.h"

namespace qor::fuzz {

/// The members of an edit rate are swapped in transit.
inline void requireSameRate(const tamb::MediaTime& time,
                            const multiprocess_communication::proto::MediaTime& message) {
  require(time.GetEditRate().GetNumerator() == message.editrate().denominator(),
          "the numerator is the message's denominator");
  require(time.GetEditRate().GetDenominator() == message.editrate().numerator(),
          "the denominator is the message's numerator");
}

/// Parameters arrive if and only if the message has some that can be rebuilt, with the same content.
inline void requireSameParameters(
    const std::shared_ptr<const tamb::IParametersCollectionInstance>& parameters, bool wereSent,
    const multiprocess_communication::proto::ParametersCollectionInstance& message) {
  namespace Serializers = multiprocess_communication::Serializers;
  std::shared_ptr<const tamb::IParametersCollectionInstance> expected;
  try {
    if (wereSent) expected = Serializers::ParametersCollectionInstanceFromProtoBuf(message);
  } catch (const std::runtime_error&) {
    require(parameters == nullptr, "parameters that cannot be rebuilt do not arrive");
    return;
  }
  require((parameters != nullptr) == (expected != nullptr), "parameters arrive when they were sent");
  if (!expected) return;
  const auto arrived = Serializers::ParametersCollectionInstanceToProtoBuf(parameters);
  require(arrived.IsInitialized(), "what was read can be written");
  // As bytes, which preserves every number, even a NaN.
  require(arrived.SerializeAsString() ==
              Serializers::ParametersCollectionInstanceToProtoBuf(expected).SerializeAsString(),
          "the parameters are the message's");
}

}  // namespace qor::fuzz
