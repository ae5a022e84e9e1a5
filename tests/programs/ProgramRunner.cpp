#include <cstdlib>
#include <stdexcept>

#include "hosting/RunEngine.h"

/// Supervises the engine program that the environment names, whatever the description says.
int main(int argumentCount, char** arguments) {
  return qor::hosting::runEngine(
      argumentCount, arguments,
      qor::hosting::EngineRunner{
          .name = "tamb-engine",
          .summary = "Runs the engine program that ENGINE_PROGRAM names.",
          .choose = [](const qor::hosting::EngineOptions&) -> qor::hosting::EngineToRun {
            const char* const file = std::getenv("ENGINE_PROGRAM");  // NOLINT(concurrency-mt-unsafe)
            if (file == nullptr) throw std::runtime_error("ENGINE_PROGRAM is not set");
            return qor::hosting::EngineProgram{.file = file};
          }});
}
