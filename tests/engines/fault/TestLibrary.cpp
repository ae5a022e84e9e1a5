#include "engines/sdk/EngineLibrary.h"
#include "tests/engines/fault/TestEngine.h"

TAMB_ENGINE_LIBRARY(qor::engines::EngineFactory<qor::engines::TestEngine>);
