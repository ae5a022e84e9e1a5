#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <string>

#include "tamb/ICommandProcessor.h"

namespace qor::multiprocess_communication {

/// A local command processor's back end, as an engine has it.
class MockCommandBackEnd : public tamb::ICommandProcessorBackEnd {
 public:
  MOCK_METHOD(void, AddControl, (std::string name, std::shared_ptr<tamb::IBasicControl> control), (override));
  MOCK_METHOD(void, AddStatusControl, (std::string name, std::shared_ptr<tamb::IBasicStatusControl> control),
              (override));
  MOCK_METHOD(void, ExecuteAllCommandsScheduledAt, (double time), (override));
  MOCK_METHOD(void, ExecuteAllCommands, (), (override));
  MOCK_METHOD(void, EraseAllCommandsInStack, (), (override));
  MOCK_METHOD(void, EraseAllCommandsInStackBefore, (double time), (override));
  MOCK_METHOD(void, DefineEngine, (tamb::IEngineFrontEnd * engine), (override));
};

}  // namespace qor::multiprocess_communication
