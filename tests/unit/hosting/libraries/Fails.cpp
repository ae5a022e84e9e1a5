#include <stdexcept>

#include "engines/sdk/EngineLibrary.h"

namespace {

struct UnlicensedFactory final : qor::engines::IEngineFactory {
  UnlicensedFactory() { throw std::runtime_error("no licence was found"); }
  qor::engines::EngineManual describe() const override { return {}; }
  std::shared_ptr<tamb::IEngineFrontEnd> make(
      std::shared_ptr<tamb::IEngineDescription> /*description*/,
      std::shared_ptr<tamb::ICommandProcessorBackEnd> /*commands*/) const override {
    return nullptr;
  }
};

}  // namespace

TAMB_ENGINE_LIBRARY(UnlicensedFactory);
