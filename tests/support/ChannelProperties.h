#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "TcpCommandProcessorBackEnd.h"
#include "TcpCommandProcessorFrontEnd.h"
#include "TcpNotificationHubBackEnd.h"
#include "TcpNotificationHubFrontEnd.h"
#include "tests/support/Crossing.h"
#include "tests/support/RandomMessages.h"
#include "tests/support/RecordingCommandProcessor.h"
#include "tests/support/RecordingHub.h"

/// Properties of the two message channels with any messages, over any message sockets: for programs that link
/// both the channels and sockets.
namespace qor::test {

/// Pushes random batches with `push`, which also records them in `sent`, and checks the arrivals. Several
/// batches are in transit at once. Fails fatally.
template <class Message>
void expectBatchesToCross(RandomMessages& random, std::size_t batches,
                          const std::function<std::shared_ptr<const Message>()>& makeMessage,
                          const std::function<void(std::vector<std::shared_ptr<const Message>>)>& push,
                          const Arrivals<std::shared_ptr<const Message>>& arrivals) {
  constexpr std::size_t batchesAtOnce = 100;
  constexpr std::size_t largestBatch = 5;
  std::size_t checked = 0;
  for (std::size_t batch = 0; batch < batches;) {
    std::vector<std::shared_ptr<const Message>> sent;
    for (const std::size_t end = std::min(batches, batch + batchesAtOnce); batch < end; ++batch) {
      std::vector<std::shared_ptr<const Message>> messages(random.upTo(random.upTo(largestBatch)));
      std::generate(messages.begin(), messages.end(), makeMessage);
      sent.insert(sent.end(), messages.begin(), messages.end());
      push(std::move(messages));
    }
    const auto arrived = arrivals.waitFor(checked + sent.size());
    ASSERT_EQ(arrived.size(), checked + sent.size()) << "before batch " << batch;
    for (const auto& message : sent) {
      ASSERT_EQ(differenceAfterCrossing(*message, *arrived[checked]), "") << "message " << checked;
      ++checked;
    }
  }
}

/// The life of one command channel that carries random batches of commands.
inline void expectCommandsToCross(const socket::SocketEndpoint& endpoint, RandomMessages& random,
                                  std::size_t batches) {
  const std::string workflowManagerId = random.text();
  const unsigned int engineId = random.uint32();
  const auto processor = std::make_shared<RecordingCommandProcessor>();
  multiprocess_communication::TcpCommandProcessorFrontEnd frontEnd;
  frontEnd.SetWorkflowManagerId(workflowManagerId);
  frontEnd.SetEngineId(engineId);
  std::optional<multiprocess_communication::TcpCommandProcessorBackEnd> backEnd;
  // Both orders of creation have to work.
  const bool engineComesFirst = random.boolean();
  if (engineComesFirst) backEnd.emplace(processor, nullptr, endpoint);
  frontEnd.connectEndpoint(endpoint);
  if (!engineComesFirst) backEnd.emplace(processor, nullptr, endpoint);

  std::size_t pushed = 0;
  expectBatchesToCross<tamb::ICommandMessage>(
      random, batches, [&] { return random.command(workflowManagerId, engineId); },
      [&](auto commands) {
        pushed += commands.size();
        frontEnd.PushCommands(std::move(commands));
      },
      processor->commands);
  backEnd.reset();
  EXPECT_EQ(processor->commands.all().size(), pushed);
}

/// The same for a notification channel. `ids` contains those of all earlier notifications, none of which may
/// occur again.
inline void expectNotificationsToCross(const socket::SocketEndpoint& endpoint, RandomMessages& random,
                                       std::size_t batches, std::set<std::string>& ids) {
  const std::string workflowManagerId = random.text();
  const unsigned int engineId = random.uint32();
  const auto hub = std::make_shared<RecordingHub>();
  multiprocess_communication::TcpNotificationHubFrontEnd frontEnd(tamb::CreateNotificationHub().first, hub);
  std::optional<multiprocess_communication::TcpNotificationHubBackEnd> backEnd;
  const bool engineComesFirst = random.boolean();
  if (engineComesFirst) backEnd.emplace(workflowManagerId, engineId, endpoint);
  frontEnd.startSubscriptionThread(endpoint);
  if (!engineComesFirst) backEnd.emplace(workflowManagerId, engineId, endpoint);

  std::size_t pushed = 0;
  expectBatchesToCross<tamb::INotificationMessage>(
      random, batches, [&] { return random.notification(workflowManagerId, engineId); },
      [&](auto notifications) {
        pushed += notifications.size();
        backEnd->PushNotifications(std::move(notifications));
      },
      hub->notifications);
  const auto arrived = hub->notifications.all();
  EXPECT_EQ(arrived.size(), pushed);
  for (const auto& notification : arrived) {
    const std::string& id = notification->GetNotificationId();
    EXPECT_FALSE(id.empty());
    EXPECT_TRUE(ids.insert(id).second) << "twice the id " << id;
  }
}

}  // namespace qor::test
