#pragma once

#include <memory>
#include <utility>

#include "engines/sdk/EngineManual.h"
#include "tamb/ICommandProcessor.h"
#include "tamb/IEngineDescription.h"
#include "tamb/IEngineFrontEnd.h"

namespace qor::engines {

/// Creates engines of one kind; this is the only interface that the process needs for that. Any thread.
class IEngineFactory {
 public:
  virtual ~IEngineFactory() = default;

  /// Does not load or open anything. A factory that is written by hand adds what its engines publish without
  /// their own doing: see withCommonNotifications.
  virtual EngineManual describe() const = 0;
  /// Creates an engine that executes the commands of `commands`. A factory may use the description to choose
  /// between engines; the caller passes it to the engine by AddEngineDescription, after setting the ids.
  /// Throws TAMBRuntimeError if the engine cannot be created.
  virtual std::shared_ptr<tamb::IEngineFrontEnd> make(
      std::shared_ptr<tamb::IEngineDescription> description,
      std::shared_ptr<tamb::ICommandProcessorBackEnd> commands) const = 0;
};

/// The factory of a class that has a static member manual() and is constructed from a command processor.
template <class Engine>
class EngineFactory final : public IEngineFactory {
 public:
  EngineManual describe() const override { return withCommonNotifications(Engine::manual()); }
  std::shared_ptr<tamb::IEngineFrontEnd> make(
      std::shared_ptr<tamb::IEngineDescription> /*description*/,
      std::shared_ptr<tamb::ICommandProcessorBackEnd> commands) const override {
    return std::make_shared<Engine>(std::move(commands));
  }
};

}  // namespace qor::engines
