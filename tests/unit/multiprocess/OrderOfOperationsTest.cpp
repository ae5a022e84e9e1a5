#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <numeric>
#include <vector>

#include "RemoteEngineFrontEnd.h"
#include "TcpCommandProcessorBackEnd.h"
#include "TcpEngineBackEnd.h"
#include "TcpNotificationHubBackEnd.h"
#include "tamb/ElementFactory.h"
#include "tests/support/CapturedLog.h"

namespace qor::multiprocess_communication {
namespace {

using socket::SocketEndpoint;
using testing::ElementsAreArray;

/// Where an operation stands in the table of its class, as the C++ ABI of Linux has it: a pointer to it holds
/// the offset, and one bit that tells it from a pointer to a function.
template <class Operation>
std::size_t slotOf(Operation operation) {
  static_assert(sizeof(operation) == 2 * sizeof(std::size_t));
  std::size_t words[2];  // NOLINT(modernize-avoid-c-arrays)
  std::memcpy(words, &operation, sizeof(words));
  EXPECT_EQ((words[0] | words[1]) & 1U, 1U) << "it is not virtual";
  return words[0] / sizeof(void*);
}

template <class... Operations>
std::vector<std::size_t> slotsOf(Operations... operations) {
  return {slotOf(operations)...};
}

/// Those of so many operations that follow a virtual destructor, which takes the first two.
std::vector<std::size_t> inThisOrder(std::size_t operations) {
  std::vector<std::size_t> slots(operations);
  std::iota(slots.begin(), slots.end(), std::size_t{2});
  return slots;
}

/// Where a base stands in an object.
template <class Base, class Class>
std::ptrdiff_t offsetOf(const Class& object) {
  return reinterpret_cast<const char*>(static_cast<const Base*>(&object)) -
         reinterpret_cast<const char*>(&object);
}

/// A host and a plug-in that were built apart meet at these tables: what stands where is part of the
/// contract.
TEST(OrderOfOperations, OfAnEngineBeginsWithItsStatus) {
  using Engine = tamb::IEngineFrontEnd;
  using Status = tamb::IBasicStatusControl;
  EXPECT_THAT(slotsOf(&Status::GetStatus, &Status::GetLastErrorMessage, &Status::GetCurrentTimeInfo),
              ElementsAreArray(inThisOrder(3)));
  EXPECT_THAT(
      slotsOf(&Engine::GetStatus, &Engine::GetLastErrorMessage, &Engine::GetCurrentTimeInfo,
              &Engine::SetInitConfig, &Engine::AddEngineDescription, &Engine::AddInputEndpoint,
              &Engine::AddOutputEndpoint, &Engine::AddAllocator, &Engine::AddClock, &Engine::AddLogger,
              &Engine::AddBenchmarker, &Engine::Run, &Engine::Ping, &Engine::RequestStop,
              &Engine::WaitForStop, &Engine::SetWorkflowManagerId, &Engine::SetEngineId,
              &Engine::GetWorkflowManagerId, &Engine::GetEngineId, &Engine::SetNotificationHubBackEnd),
      ElementsAreArray(inThisOrder(20)));
}

TEST(OrderOfOperations, OfACommandProcessorIsThatOfItsTwoFaces) {
  using FrontEnd = tamb::ICommandProcessorFrontEnd;
  EXPECT_THAT(slotsOf(&FrontEnd::GetControl, &FrontEnd::GetStatusControl, &FrontEnd::PushCommands,
                      &FrontEnd::PushCommand, &FrontEnd::SetWorkflowManagerId, &FrontEnd::SetEngineId,
                      &FrontEnd::GetWorkflowManagerId, &FrontEnd::GetEngineId),
              ElementsAreArray(inThisOrder(8)));
  using BackEnd = tamb::ICommandProcessorBackEnd;
  EXPECT_THAT(
      slotsOf(&BackEnd::AddControl, &BackEnd::AddStatusControl, &BackEnd::ExecuteAllCommandsScheduledAt,
              &BackEnd::ExecuteAllCommands, &BackEnd::EraseAllCommandsInStack,
              &BackEnd::EraseAllCommandsInStackBefore, &BackEnd::DefineEngine),
      ElementsAreArray(inThisOrder(7)));
}

TEST(OrderOfOperations, OfANotificationHubIsThatOfItsTwoFaces) {
  using FrontEnd = tamb::INotificationHubFrontEnd;
  EXPECT_THAT(slotsOf(&FrontEnd::Subscribe, &FrontEnd::SubscribeToCommandResponse, &FrontEnd::SubscribeToStep,
                      &FrontEnd::Unsubscribe, &FrontEnd::SetWorkflowManagerId, &FrontEnd::SetEngineId,
                      &FrontEnd::GetWorkflowManagerId, &FrontEnd::GetEngineId),
              ElementsAreArray(inThisOrder(8)));
  using BackEnd = tamb::INotificationHubBackEnd;
  EXPECT_THAT(slotsOf(&BackEnd::PushNotifications, &BackEnd::PushNotification),
              ElementsAreArray(inThisOrder(2)));
}

TEST(OrderOfOperations, OfMessagesIsFixed) {
  using Command = tamb::ICommandMessage;
  EXPECT_THAT(
      slotsOf(&Command::GetCommandArgs, &Command::GetTime, &Command::GetCommandName, &Command::GetCommandId,
              &Command::GetWorkflowManagerId, &Command::GetEngineId, &Command::GetStepId),
      ElementsAreArray(inThisOrder(7)));
  using Notification = tamb::INotificationMessage;
  EXPECT_THAT(slotsOf(&Notification::GetTime, &Notification::GetStepId, &Notification::GetNotificationLine,
                      &Notification::GetNotificationObject, &Notification::GetNotificationId,
                      &Notification::GetCommandId, &Notification::GetWorkflowManagerId,
                      &Notification::GetEngineId, &Notification::IsAnError),
              ElementsAreArray(inThisOrder(9)));
}

TEST(OrderOfOperations, OfAFactoryAndOfAFormatterIsThatOfTheirOne) {
  EXPECT_EQ(slotOf(&tamb::IElementFactory::GetFactoryType), 2U);
  // It has no virtual destructor.
  EXPECT_EQ(slotOf(&utils::IMessageFormatter::messageHeader), 0U);
  EXPECT_EQ(slotOf(&TcpEngineBackEnd::messageHeader), 0U);
}

TEST(OrderOfOperations, OfOurClassesAddsNothingAheadOfWhatTheyImplement) {
  EXPECT_EQ(slotOf(&RemoteEngineFrontEnd::SetNotificationHubBackEnd), 21U);
  EXPECT_EQ(slotOf(&TcpEngineFrontEnd::SetNotificationHubBackEnd), 21U);
  EXPECT_EQ(slotOf(&TcpCommandProcessorFrontEnd::GetEngineId), 9U);
  EXPECT_EQ(slotOf(&TcpCommandProcessorBackEnd::DefineEngine), 8U);
  EXPECT_EQ(slotOf(&TcpCommandProcessorBackEnd::TcpCommandMessage::GetStepId), 8U);
  EXPECT_EQ(slotOf(&TcpNotificationHubFrontEnd::GetEngineId), 9U);
  EXPECT_EQ(slotOf(&TcpNotificationHubBackEnd::PushNotification), 3U);
  EXPECT_EQ(slotOf(&TcpNotificationHubFrontEnd::TcpNotificationMessage::IsAnError), 10U);
}

/// Checks that an object begins with an interface, and that the formatter comes next.
template <class Interface, class Class>
void expectBegins(const Class& object) {
  EXPECT_EQ(offsetOf<Interface>(object), 0);
  // The interface has nothing but the pointer to its table.
  EXPECT_EQ(offsetOf<utils::MessageFormatter>(object), static_cast<std::ptrdiff_t>(sizeof(void*)));
}

TEST(OrderOfBases, BeginsWithTheInterfaceAndTheFormatterFollows) {
  const test::CapturedLog log;  // of those that were never connected
  expectBegins<tamb::IEngineFrontEnd>(TcpEngineFrontEnd());
  const RemoteEngineFrontEnd engine;
  expectBegins<tamb::IEngineFrontEnd>(engine);
  expectBegins<tamb::ICommandProcessorFrontEnd>(*engine.commandProxy());
  expectBegins<tamb::INotificationHubFrontEnd>(*engine.notificationProxy());
  expectBegins<tamb::ICommandProcessorBackEnd>(
      TcpCommandProcessorBackEnd(nullptr, nullptr, SocketEndpoint::FromString("inproc://commands")));
  expectBegins<tamb::INotificationHubBackEnd>(
      TcpNotificationHubBackEnd("manager", 7, SocketEndpoint::FromString("inproc://notifications")));
}

}  // namespace
}  // namespace qor::multiprocess_communication
