#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "tamb/ICommandMessage.h"
#include "tamb/INotificationMessage.h"
#include "tamb/IParametersCollection.h"

namespace qor::bench {

constexpr const char* workflowManagerId = "7b2d1c80-5f0e-4f7e-9a53-0c8f6f3f1a11";
constexpr unsigned int engineId = 7;
/// The step of the messages.
constexpr const char* stepId = "0f0b6f1e-93a4-4d1c-8f2b-54c1a8f2d9e0";

/// Five parameters as plain values.
struct TypicalValues {
  bool enabled;
  std::int64_t offset;
  std::uint64_t frames;
  double gain;
  std::string_view target;
};
constexpr TypicalValues typicalDefaults{
    .enabled = false, .offset = 0, .frames = 0, .gain = 1.0, .target = ""};
constexpr TypicalValues typicalValues{
    .enabled = true, .offset = -12, .frames = 250, .gain = 0.5, .target = "volume"};

/// The same as a collection: five parameters, one of each type that the channels carry.
std::shared_ptr<const tamb::IParametersCollectionInstance> typicalParameters();
/// Messages as hosts and engines push them, with ids of 36 characters.
std::shared_ptr<const tamb::ICommandMessage> typicalCommand(unsigned int id, bool withParameters);
std::shared_ptr<const tamb::INotificationMessage> typicalNotification(unsigned int id, bool withParameters);

}  // namespace qor::bench
