#pragma once

#include <memory>

#include "engines/sdk/IEngineFactory.h"
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

/// Makes an engine of that factory, with its ids and its description: ready for a notification hub and for
/// Run. Throws TAMBRuntimeError when the engine refuses its description; what is wrong with the media is
/// reported by the run.
LocalEngine makeLocalEngine(const tamb::IEngineDescription& description, const IEngineFactory& factory);

}  // namespace qor::engines
