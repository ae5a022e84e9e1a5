#include "engines/media/MediaEngine.h"
#include "engines/sdk/EngineLibrary.h"

TAMB_ENGINE_LIBRARY(qor::engines::EngineFactory<qor::engines::MediaEngine>);
