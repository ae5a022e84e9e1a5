#include <CLI/CLI.hpp>
#include <filesystem>
#include <vector>

#include "hosting/EngineRegistry.h"
#include "hosting/EnginesOption.h"
#include "hosting/RunEngine.h"

namespace {

constexpr const char* examples = R"(
Examples:
  tamb-engine --workflow-manager-id studio --engine-id 1 --description job.json \
    --request ipc:///run/e1/request --status ipc:///run/e1/status \
    --command ipc:///run/e1/command --notification ipc:///run/e1/notification
)";

}  // namespace

int main(int argumentCount, char** arguments) {
  std::vector<std::filesystem::path> folders;
  return qor::hosting::runEngine(
      argumentCount, arguments,
      qor::hosting::EngineRunner{
          .name = "tamb-engine",
          .summary = "Runs one engine, to be driven by a host in another process.",
          .examples = examples,
          .addOptions = [&](CLI::App& app) { qor::hosting::addEnginesOption(app, folders); },
          .choose =
              [&](const qor::hosting::EngineOptions& options) {
                const qor::hosting::EngineRegistry registry(qor::hosting::registryFolders(folders));
                return qor::hosting::toRun(registry.engineFor(options.description));
              }});
}
