#pragma once

#include <chrono>
#include <memory>
#include <utility>

#include "engines/EngineBase.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::examples {

/// Counts up, ten times a second, and tells. A command "Set" with the Int64 argument "value" changes the
/// count.
class CounterEngine final : public engines::EngineBase {
 public:
  explicit CounterEngine(std::shared_ptr<tamb::ICommandProcessorBackEnd> commands)
      : EngineBase("CounterEngine", "counter", std::move(commands)) {}

  /// Nothing has to be described.
  void AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> /*description*/) override {}
  tamb::TimeInfo GetCurrentTimeInfo(const std::string& name) const override {
    throw tamb::TAMBRuntimeError("CounterEngine: there is no \"" + name + "\" that has a time");
  }

 private:
  void runOnce() override {
    const auto tell = notifications();
    const engines::StepControl::Serving serving(control(), [&](const tamb::ICommandMessage& command) {
      count_ = command.GetCommandArgs()->GetInt64("value");
      tell.commandDone(command, seconds_);
    });
    while (!watch().stopRequested()) {
      watch().beat();
      commands().ExecuteAllCommandsScheduledAt(seconds_);
      tell.publish("Count", seconds_, {{"value", count_++}});
      seconds_ += 0.1;
      watch().sleepUntil(engines::RunWatch::Clock::now() + std::chrono::milliseconds(100));
    }
  }

  std::int64_t count_ = 0;
  double seconds_ = 0;
};

}  // namespace qor::examples
