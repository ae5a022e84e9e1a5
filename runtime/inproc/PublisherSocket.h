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

  void add(SubscriberSocket& subscriber);
  void remove(const SubscriberSocket& subscriber);
  /// Hands over what is kept, as far as every subscriber has room for it.
  void handOver();

 private:
  std::size_t peers() const override { return subscribers_.size(); }
  std::size_t unreceived() const override { return 0; }
  std::size_t unsent() const override { return backlog_.count(); }
  std::string take() override { return {}; }
  std::string whyNoneCanCome() const override { return "a publisher receives nothing"; }
  void put(std::string encoded, Switchboard::Lock& lock) override;
  bool canHandOver();

  void admit(SubscriberSocket& subscriber);

  void logRefusals();

  const std::size_t limit_;                     ///< of subscribers that are served at a time
  std::vector<SubscriberSocket*> subscribers_;  ///< those that are served
  std::vector<SubscriberSocket*> waiting_;      ///< those that are refused, in the order of their coming
  RefusalLog refusals_;
  SendBacklog<std::string> backlog_;
  std::optional<std::string> newest_;  ///< where it is all that counts
};

}  // namespace qor::socket::inproc
