#pragma once

#include <memory>

#include "engines/sdk/IEngineFactory.h"
#include "tamb/ICommandProcessor.h"
#include "tamb/IEngineDescription.h"
#include "tamb/IEngineFrontEnd.h"

namespace qor::engines {

/// An engine of this process, and both sides of the command processor that delivers its commands.
struct LocalEngine {
  std::shared_ptr<tamb::IEngineFrontEnd> engine;
  std::shared_ptr<tamb::ICommandProcessorFrontEnd> commandFrontEnd;
  std::shared_ptr<tamb::ICommandProcessorBackEnd> commandBackEnd;
};

/// Creates an engine with that factory, and sets its ids and its description; it is then ready for a
/// notification hub and for Run. Throws TAMBRuntimeError if the engine rejects its description. The run
/// reports errors in the media.
LocalEngine makeLocalEngine(const tamb::IEngineDescription& description, const IEngineFactory& factory);

}  // namespace qor::engines
