#pragma once

#include <optional>
#include <string>
#include <vector>

#include "runtime/inproc/BindingSocket.h"
#include "runtime/messaging/RefusalLog.h"
#include "runtime/messaging/SendBacklog.h"

namespace qor::socket::inproc {

class SubscriberSocket;

/// Puts each message into the inbox of every subscriber, and keeps it as long as there is none, or one
/// without room. Where each message supersedes those before it, whoever joins is told the newest. A publisher
/// whose endpoint limits its readers leaves the others waiting until a reader disconnects.
class PublisherSocket final : public BindingSocket {
 public:
  PublisherSocket(const SocketLabel& label, bool newestOnly, const SocketEndpoint& endpoint);
  ~PublisherSocket() override;
  PublisherSocket(const PublisherSocket&) = delete;
  PublisherSocket& operator=(const PublisherSocket&) = delete;

  void add(SubscriberSocket& subscriber) QOR_REQUIRES(networkMutex);
  void remove(const SubscriberSocket& subscriber) QOR_REQUIRES(networkMutex);
  /// Hands over what is kept, as far as every subscriber has room for it.
  void sendBacklog() QOR_REQUIRES(networkMutex);

 private:
  std::size_t peers() const QOR_REQUIRES(networkMutex) override { return subscribers_.size(); }
  std::size_t unreceived() const override { return 0; }
  std::size_t unsent() const QOR_REQUIRES(networkMutex) override { return backlog_.count(); }
  std::string take() override { return {}; }
  std::string whyNoneCanCome() const override { return "a publisher receives nothing"; }
  void put(std::string encoded, base::Lock& lock) QOR_REQUIRES(networkMutex) override;
  bool canSend() QOR_REQUIRES(networkMutex);

  void admit(SubscriberSocket& subscriber) QOR_REQUIRES(networkMutex);

  void logRefusals() QOR_REQUIRES(networkMutex);

  /// Of subscribers that are served at a time.
  const std::size_t limit_;
  /// Those that are served.
  std::vector<SubscriberSocket*> subscribers_ QOR_GUARDED_BY(networkMutex);
  /// Those that are refused, in the order in which they came.
  std::vector<SubscriberSocket*> waiting_ QOR_GUARDED_BY(networkMutex);
  RefusalLog refusals_ QOR_GUARDED_BY(networkMutex);
  SendBacklog<std::string> backlog_ QOR_GUARDED_BY(networkMutex);
  /// Where it is all that counts.
  std::optional<std::string> newest_ QOR_GUARDED_BY(networkMutex);
};

}  // namespace qor::socket::inproc
