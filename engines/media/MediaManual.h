#pragma once

#include "engines/sdk/EngineManual.h"

namespace qor::engines {

/// The manual of the media engine, which also defines its document.
const EngineManual& mediaManual();

}  // namespace qor::engines
