#include "engines/sdk/LocalEngine.h"

#include <tuple>

#include "runtime/tamb/CommandProcessor.h"
#include "runtime/tamb/EngineDescription.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

LocalEngine makeLocalEngine(const tamb::IEngineDescription& description, const IEngineFactory& factory) {
  const auto engineId = static_cast<unsigned int>(description.GetEngineId());
  const auto copy = std::make_shared<tamb::EngineDescription>(description.GetWorkflowManagerId(),
                                                              description.GetDescription(), engineId);
  LocalEngine local;
  std::tie(local.commandFrontEnd, local.commandBackEnd) = tamb::CreateCommandProcessor();
  local.engine = factory.make(copy, local.commandBackEnd);
  if (!local.engine) throw tamb::TAMBRuntimeError("the engine's factory returned no engine");
  local.engine->SetWorkflowManagerId(copy->GetWorkflowManagerId());
  local.engine->SetEngineId(engineId);
  local.commandFrontEnd->SetWorkflowManagerId(copy->GetWorkflowManagerId());
  local.commandFrontEnd->SetEngineId(engineId);
  local.commandBackEnd->DefineEngine(local.engine.get());
  local.engine->AddEngineDescription(copy);
  return local;
}

}  // namespace qor::engines
