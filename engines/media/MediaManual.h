#pragma once

#include "engines/sdk/EngineManual.h"

namespace qor::engines {

/// What the media engine reports of itself; its document is read by it.
const EngineManual& mediaManual();

}  // namespace qor::engines
