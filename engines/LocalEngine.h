#pragma once

#include <memory>

#include "engines/sdk/EngineDocument.h"
#include "tamb/ICommandProcessor.h"
#include "tamb/IEngineDescription.h"
#include "tamb/IEngineFrontEnd.h"

namespace qor::engines {

/// An engine of this process, and both faces of the command processor that brings its commands.
struct LocalEngine {
  std::shared_ptr<tamb::IEngineFrontEnd> engine;
  std::shared_ptr<tamb::ICommandProcessorFrontEnd> commandFrontEnd;
  std::shared_ptr<tamb::ICommandProcessorBackEnd> commandBackEnd;
};

/// Makes the engine that the description's document names, ready for a notification hub and for Run. Throws
/// TAMBRuntimeError when the document cannot be read or names no offered engine; what is wrong with the media
/// shows in the run.
LocalEngine makeLocalEngine(const tamb::IEngineDescription& description, OfferedEngines offered);

}  // namespace qor::engines
