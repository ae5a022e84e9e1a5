#pragma once

#include <memory>
#include <utility>

#include "engines/sdk/EngineManual.h"
#include "tamb/ICommandProcessor.h"
#include "tamb/IEngineDescription.h"
#include "tamb/IEngineFrontEnd.h"

namespace qor::engines {

/// Makes engines of one kind: all that the process around an engine has to know of it. Any thread.
class IEngineFactory {
 public:
  virtual ~IEngineFactory() = default;

  /// Does not load or open anything. A factory that is written by hand adds what its engines publish without
  /// their own doing: see withCommonNotifications.
  virtual EngineManual describe() const = 0;
  /// Makes an engine that executes the commands of `commands`. The description is there for factories that
  /// choose by it: the caller gives it to the engine itself, by AddEngineDescription, once the engine has its
  /// ids. Throws TAMBRuntimeError when no engine can be made.
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
