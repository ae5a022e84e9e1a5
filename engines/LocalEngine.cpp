#include "engines/LocalEngine.h"

#include <tuple>
#include <variant>

#include "engines/TestEngine.h"
#include "engines/media/MediaEngine.h"
#include "runtime/tamb/CommandProcessor.h"
#include "runtime/tamb/EngineDescription.h"

namespace qor::engines {

LocalEngine makeLocalEngine(const tamb::IEngineDescription& description, OfferedEngines offered) {
  const auto engineId = static_cast<unsigned int>(description.GetEngineId());
  const auto copy = std::make_shared<tamb::EngineDescription>(description.GetWorkflowManagerId(),
                                                              description.GetDescription(), engineId);
  const auto document = parseEngineDocument(copy->GetDescription(), offered);
  LocalEngine local;
  std::tie(local.commandFrontEnd, local.commandBackEnd) = tamb::CreateCommandProcessor();
  if (std::holds_alternative<MediaDocument>(document)) {
    local.engine = std::make_shared<MediaEngine>(local.commandBackEnd);
  } else {
    local.engine = std::make_shared<TestEngine>(local.commandBackEnd);
  }
  local.engine->SetWorkflowManagerId(copy->GetWorkflowManagerId());
  local.engine->SetEngineId(engineId);
  local.commandFrontEnd->SetWorkflowManagerId(copy->GetWorkflowManagerId());
  local.commandFrontEnd->SetEngineId(engineId);
  local.commandBackEnd->DefineEngine(local.engine.get());
  local.engine->AddEngineDescription(copy);
  return local;
}

}  // namespace qor::engines
