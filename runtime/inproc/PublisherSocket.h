#pragma once

#include <optional>
#include <string>
#include <vector>

#include "runtime/inproc/BindingSocket.h"
#include "runtime/messaging/RefusalLog.h"
#include "runtime/messaging/SendBacklog.h"

namespace qor::socket::inproc {

class SubscriberSocket;

/// Puts each message into the inbox of every subscriber; keeps it while there is no subscriber, or one has no
/// room. If each message supersedes the earlier ones, a new subscriber receives the newest. If the endpoint
/// limits the readers, further subscribers wait until a reader disconnects.
class PublisherSocket final : public BindingSocket {
 public:
  PublisherSocket(const SocketLabel& label, bool newestOnly, const SocketEndpoint& endpoint);
  ~PublisherSocket() override;
  PublisherSocket(const PublisherSocket&) = delete;
  PublisherSocket& operator=(const PublisherSocket&) = delete;

  void add(SubscriberSocket& subscriber) QOR_REQUIRES(networkMutex);
  void remove(const SubscriberSocket& subscriber) QOR_REQUIRES(networkMutex);
  /// Sends the backlog, as far as every subscriber has room.
  void sendBacklog() QOR_REQUIRES(networkMutex);

 private:
  std::size_t peers() const QOR_REQUIRES(networkMutex) override { return subscribers_.size(); }
  std::size_t unreceived() const override { return 0; }
  std::size_t unsent() const QOR_REQUIRES(networkMutex) override { return backlog_.count(); }
  std::string take() override { return {}; }
  std::string whyNothingCanArrive() const override { return "a publisher receives nothing"; }
  void put(std::string encoded, base::Lock& lock) QOR_REQUIRES(networkMutex) override;
  bool canSend() QOR_REQUIRES(networkMutex);

  void admit(SubscriberSocket& subscriber) QOR_REQUIRES(networkMutex);

  void logRefusals() QOR_REQUIRES(networkMutex);

  /// The maximum number of subscribers that are served at a time.
  const std::size_t limit_;
  /// The subscribers that are served.
  std::vector<SubscriberSocket*> subscribers_ QOR_GUARDED_BY(networkMutex);
  /// The refused subscribers, in the order of their arrival.
  std::vector<SubscriberSocket*> waiting_ QOR_GUARDED_BY(networkMutex);
  RefusalLog refusals_ QOR_GUARDED_BY(networkMutex);
  SendBacklog<std::string> backlog_ QOR_GUARDED_BY(networkMutex);
  /// The newest message, if it supersedes all earlier ones.
  std::optional<std::string> newest_ QOR_GUARDED_BY(networkMutex);
};

}  // namespace qor::socket::inproc
