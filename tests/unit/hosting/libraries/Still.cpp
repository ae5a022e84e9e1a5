#include "engines/sdk/EngineBase.h"
#include "engines/sdk/EngineDocument.h"
#include "engines/sdk/EngineLibrary.h"
#include "tamb/TAMBRuntimeError.h"

namespace {

/// Does nothing.
class StillEngine final : public qor::engines::EngineBase {
 public:
  explicit StillEngine(std::shared_ptr<tamb::ICommandProcessorBackEnd> commands)
      : EngineBase("StillEngine", "rest", std::move(commands)) {}

  static qor::engines::EngineManual manual() {
    return {.name = "still",
            .summary = "",
            .step = "rest",
            .keys = {{.name = "tape", .type = qor::engines::KeyType::Location}}};
  }

  void AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> description) override {
    qor::engines::readDocument(description->GetDescription(), manual());
  }
  tamb::TimeInfo GetCurrentTimeInfo(const std::string& /*name*/) const override {
    throw tamb::TAMBRuntimeError("StillEngine: nothing has a time");
  }

 private:
  void runOnce() override {}
};

}  // namespace

TAMB_ENGINE_LIBRARY(qor::engines::EngineFactory<StillEngine>);
