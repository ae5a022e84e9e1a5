#include <CLI/CLI.hpp>
#include <memory>
#include <utility>
#include <variant>

#include "engines/TestEngine.h"
#include "engines/media/MediaEngine.h"
#include "engines/sdk/EngineDocument.h"
#include "hosting/RunEngine.h"

namespace {

using qor::engines::OfferedEngines;

constexpr const char* examples = R"(
Examples:
  tamb-engine --workflow-manager-id studio --engine-id 1 --description job.json \
    --request ipc:///run/e1/request --status ipc:///run/e1/status \
    --command ipc:///run/e1/command --notification ipc:///run/e1/notification
)";

/// Makes the engine that the description names.
class OfferedEngineFactory final : public qor::engines::IEngineFactory {
 public:
  explicit OfferedEngineFactory(OfferedEngines offered) : offered_(offered) {}

  qor::engines::EngineManual describe() const override { return {}; }
  std::shared_ptr<tamb::IEngineFrontEnd> make(
      std::shared_ptr<tamb::IEngineDescription> description,
      std::shared_ptr<tamb::ICommandProcessorBackEnd> commands) const override {
    const auto document = qor::engines::parseEngineDocument(description->GetDescription(), offered_);
    if (std::holds_alternative<qor::engines::MediaDocument>(document))
      return std::make_shared<qor::engines::MediaEngine>(std::move(commands));
    return std::make_shared<qor::engines::TestEngine>(std::move(commands));
  }

 private:
  const OfferedEngines offered_;
};

}  // namespace

int main(int argumentCount, char** arguments) {
  bool withTestEngine = false;
  const auto choose = [&](const qor::hosting::EngineOptions& /*options*/) -> qor::hosting::EngineToRun {
    const auto offered = withTestEngine ? OfferedEngines::WithTestEngine : OfferedEngines::Shipped;
    return qor::hosting::EngineLoader([offered] { return std::make_shared<OfferedEngineFactory>(offered); });
  };
  return qor::hosting::runEngine(
      argumentCount, arguments,
      qor::hosting::EngineRunner{
          .name = "tamb-engine",
          .summary = "Runs one engine, to be driven by a host in another process.",
          .examples = examples,
          .addOptions =
              [&](CLI::App& app) {
                app.add_flag("--with-test-engine", withTestEngine,
                             "Offer the engine \"test\" too, which crashes and freezes on demand");
              },
          .choose = choose});
}
