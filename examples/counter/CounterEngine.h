#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "engines/sdk/EngineBase.h"
#include "engines/sdk/EngineManual.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::examples {

/// Counts up ten times a second, and publishes each count. The command "Set" with the Int64 argument "value"
/// changes the count at its media time, which counts from the start of the run.
class CounterEngine final : public engines::EngineBase {
 public:
  static engines::EngineManual manual() {
    return {.name = "counter",
            .summary = "Counts up ten times a second.",
            .step = "counter",
            .commands = {{.name = "Set",
                          .summary = "Changes the count",
                          .arguments = {{.name = "value", .type = tamb::TambType::Int64}}}},
            .notifications = {{.line = "Count",
                               .summary = "The count, ten times a second",
                               .values = {{.name = "value", .type = tamb::TambType::Int64}}}}};
  }

  explicit CounterEngine(std::shared_ptr<tamb::ICommandProcessorBackEnd> commands)
      : EngineBase("CounterEngine", "counter", std::move(commands)) {}

  /// There are no keys to read.
  void AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> /*description*/) override {}
  tamb::TimeInfo GetCurrentTimeInfo(const std::string& name) const override {
    throw tamb::TAMBRuntimeError("CounterEngine: unknown time \"" + name + '"');
  }

 private:
  void runOnce() override {
    const auto out = notifications();
    const engines::StepControl::Serving serving(control(), [&](const tamb::ICommandMessage& command) {
      execute(command);
      out.commandDone(command, seconds());
    });
    while (!watch().stopRequested()) {
      watch().beat();
      commands().ExecuteAllCommandsScheduledAt(seconds());
      out.publish("Count", seconds(), {{"value", count_++}});
      ++tenths_;
      watch().sleepUntil(engines::RunWatch::Clock::now() + std::chrono::milliseconds(100));
    }
  }

  /// Its exceptions become the reason in the command's "CommandFailed".
  void execute(const tamb::ICommandMessage& command) {
    if (command.GetCommandName() != "Set") {
      throw tamb::TAMBRuntimeError("unknown command \"" + command.GetCommandName() + "\"; expected \"Set\"");
    }
    const auto arguments = command.GetCommandArgs();
    if (!arguments || !arguments->HasKey("value")) {
      throw tamb::TAMBRuntimeError("missing argument \"value\"; expected an Int64");
    }
    count_ = arguments->GetInt64("value");
  }

  double seconds() const { return static_cast<double>(tenths_) / 10; }

  std::int64_t count_ = 0;
  /// Tenths of a second since the start: integers, so that times do not drift.
  std::int64_t tenths_ = 0;
};

}  // namespace qor::examples
