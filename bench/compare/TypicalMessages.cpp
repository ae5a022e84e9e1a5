#include "bench/compare/TypicalMessages.h"

#include <string>

#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/NotificationMessage.h"

namespace qor::bench {

namespace {

tamb::MediaTime time(unsigned int id) { return {tamb::EditRate(25, 1), 1'000 + std::int64_t{id}, nullptr}; }

std::shared_ptr<const tamb::IParametersCollectionInstance> parametersIf(bool wanted) {
  return wanted ? typicalParameters() : nullptr;
}

}  // namespace

std::shared_ptr<const tamb::IParametersCollectionInstance> typicalParameters() {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddBoolKey("enabled", typicalDefaults.enabled, "");
  prototype->AddInt64Key("offset", typicalDefaults.offset, "");
  prototype->AddUint64Key("frames", typicalDefaults.frames, "");
  prototype->AddDoubleKey("gain", typicalDefaults.gain, "");
  prototype->AddUTF8StringKey("target", std::string(typicalDefaults.target), "");
  auto parameters = tamb::CreateParametersCollectionInstance(prototype);
  parameters->SetBool("enabled", typicalValues.enabled);
  parameters->SetInt64("offset", typicalValues.offset);
  parameters->SetUint64("frames", typicalValues.frames);
  parameters->SetDouble("gain", typicalValues.gain);
  parameters->SetUTF8String("target", std::string(typicalValues.target));
  return parameters;
}

std::shared_ptr<const tamb::ICommandMessage> typicalCommand(unsigned int id, bool withParameters) {
  return std::make_shared<tamb::CommandMessage>(tamb::CommandFields{
      .commandArgs = parametersIf(withParameters),
      .time = time(id),
      .commandName = "FilterCommand",
      .commandId = id,
      .workflowManagerId = workflowManagerId,
      .engineId = engineId,
      .stepId = stepId,
  });
}

std::shared_ptr<const tamb::INotificationMessage> typicalNotification(unsigned int id, bool withParameters) {
  return std::make_shared<tamb::NotificationMessage>(tamb::NotificationFields{
      .time = time(id),
      .stepId = stepId,
      .notificationLine = "Progress",
      .notificationObject = parametersIf(withParameters),
      .notificationId = "c3f1d0a2-6a3e-4c36-a1de-2f0b7c9d5e44",
      .commandId = id,
      .workflowManagerId = workflowManagerId,
      .engineId = engineId,
  });
}

}  // namespace qor::bench
