#include "engines/sdk/IEngineFactory.h"
#include "examples/counter/CounterEngine.h"
#include "hosting/RunEngine.h"

/// An engine in a process of its own, with its supervisor: all options and behaviour of tamb-engine.
int main(int argumentCount, char** arguments) {
  return qor::hosting::runEngine(argumentCount, arguments,
                                 qor::engines::EngineFactory<qor::examples::CounterEngine>());
}
