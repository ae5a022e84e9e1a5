#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/EngineDescription.h"
#include "runtime/tamb/NotificationMessage.h"

namespace {

using tamb::EditRate;
using tamb::MediaTime;

TEST(EngineDescription, HoldsItsConstructorsArguments) {
  const tamb::EngineDescription description("manager", R"({"engine": "mixer"})", 4294967295U);
  EXPECT_EQ(description.GetWorkflowManagerId(), "manager");
  EXPECT_EQ(description.GetDescription(), R"({"engine": "mixer"})");
  EXPECT_EQ(description.GetEngineId(), -1) << "the bits of an unsigned number";
}

TEST(CommandMessage, HoldsItsConstructorsArguments) {
  const auto args = tamb::CreateParametersCollectionInstance(tamb::CreateParametersCollectionPrototype());
  const tamb::CommandMessage command({.commandArgs = args,
                                      .time = MediaTime(EditRate(25, 1), 50, nullptr),
                                      .commandName = "Fade",
                                      .commandId = 12,
                                      .workflowManagerId = "manager",
                                      .engineId = 7,
                                      .stepId = "mixer"});
  EXPECT_EQ(command.GetCommandArgs(), args);
  EXPECT_EQ(command.GetTime().GetTimeNumber(), 50);
  EXPECT_EQ(command.GetTime().GetEditRate(), EditRate(25, 1));
  EXPECT_EQ(command.GetCommandName(), "Fade");
  EXPECT_EQ(command.GetCommandId(), 12U);
  EXPECT_EQ(command.GetWorkflowManagerId(), "manager");
  EXPECT_EQ(command.GetEngineId(), 7U);
  EXPECT_EQ(command.GetStepId(), "mixer");
}

TEST(NotificationMessage, HoldsItsConstructorsArguments) {
  const auto object = tamb::CreateParametersCollectionInstance(tamb::CreateParametersCollectionPrototype());
  const tamb::NotificationMessage notification({.time = MediaTime(EditRate(25, 1), 50, nullptr),
                                                .stepId = "mixer",
                                                .notificationLine = "faded",
                                                .notificationObject = object,
                                                .notificationId = "id",
                                                .commandId = 12,
                                                .workflowManagerId = "manager",
                                                .engineId = 7,
                                                .isAnError = true});
  EXPECT_EQ(notification.GetTime().GetTimeNumber(), 50);
  EXPECT_EQ(notification.GetTime().GetEditRate(), EditRate(25, 1));
  EXPECT_EQ(notification.GetStepId(), "mixer");
  EXPECT_EQ(notification.GetNotificationLine(), "faded");
  EXPECT_EQ(notification.GetNotificationObject(), object);
  EXPECT_EQ(notification.GetNotificationId(), "id");
  EXPECT_EQ(notification.GetCommandId(), 12U);
  EXPECT_EQ(notification.GetWorkflowManagerId(), "manager");
  EXPECT_EQ(notification.GetEngineId(), 7U);
  EXPECT_TRUE(notification.IsAnError());
}

}  // namespace
