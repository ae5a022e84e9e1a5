#pragma once

#include <exception>
#include <memory>
#include <string>

#include "engines/sdk/EngineBase.h"
#include "tests/engines/fault/TestDocument.h"

namespace qor::engines {

/// An engine without media, for tests of failures: it runs until it is stopped, and crashes, hangs or throws
/// as its document says. Commands are executed at once, whatever their media times.
class TestEngine final : public EngineBase {
 public:
  explicit TestEngine(std::shared_ptr<tamb::ICommandProcessorBackEnd> commands);

  static EngineManual manual() { return testManual(); }

  /// Commits the fault that is to happen on construction.
  void AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> description) override;
  void RequestStop() override;
  void Abandon(std::string reason) override;
  /// Publishes "Pinged", then does what other engines do.
  void Ping(unsigned int timeout) override;
  /// Always throws: there is no media.
  tamb::TimeInfo GetCurrentTimeInfo(const std::string& name) const override;

 private:
  void runOnce() override;
  void publishTicks(const StepNotifications& notifications) const;
  void execute(const StepNotifications& notifications, const tamb::ICommandMessage& command);
  /// Prints first, even without a fault.
  void commitFault(const std::string& when);

  TestDocument document_;
  /// The exception that a command caused: the command processor passes none on.
  std::exception_ptr thrown_;
};

}  // namespace qor::engines
