#pragma once

#include <chrono>
#include <condition_variable>
#include <optional>

#include "runtime/base/Mutex.h"
#include "runtime/messaging/SendBacklog.h"
#include "runtime/zmq/AdmittedReaders.h"
#include "runtime/zmq/SocketWatch.h"
#include "runtime/zmq/XpubSubscribers.h"
#include "runtime/zmq/ZmqOpenSocket.h"

namespace qor::socket {

/// Sends to every subscriber, or to as many as its endpoint allows, and keeps messages without a subscriber,
/// or while a subscriber's queue is full. If each message supersedes the earlier ones, the newest is sent
/// again to every new subscriber. Two threads use it: the owner's, which sends, and the watch's, which learns
/// of subscribers and sends the backlog; the mutex makes libzmq's socket safe for both.
class PublisherSocket : public ZmqOpenSocket, private Watched {
 public:
  PublisherSocket(const SocketLabel& label, bool newestOnly, const SocketEndpoint& endpoint);

  int poll(std::chrono::milliseconds timeOut, std::string& errorText) override;
  void send(const google::protobuf::Message& message, std::size_t size) override;
  int receive(google::protobuf::Message* message, unsigned int sizeBound) override;
  void interrupt() noexcept override {}  // no thread waits here
  std::size_t close(std::chrono::milliseconds timeForUnsent) noexcept override;

 private:
  bool onActivity() noexcept override;
  void lookForSubscribers() QOR_REQUIRES(mutex_);
  void sendBacklog() QOR_REQUIRES(mutex_);
  void onSubscription() QOR_REQUIRES(mutex_);
  /// Ends the watch's calls. Call it without the mutex.
  void endReception();

  std::optional<int> reports_;  ///< subscribers_' descriptor
  base::Mutex mutex_;
  std::condition_variable backlogChanged_;
  SendBacklog<ZmqMessage> backlog_ QOR_GUARDED_BY(mutex_);
  std::optional<ZmqMessage> newest_ QOR_GUARDED_BY(mutex_);  ///< if it supersedes all earlier ones
  // Empty without a limit of readers:
  std::optional<XpubSubscribers> subscribers_ QOR_GUARDED_BY(mutex_);
  std::optional<AdmittedReaders> readers_ QOR_GUARDED_BY(mutex_);
  bool subscribed_ QOR_GUARDED_BY(mutex_) = false;
  bool ended_ QOR_GUARDED_BY(mutex_) = false;                     ///< no peer can subscribe any more
  std::chrono::milliseconds lastLook_ QOR_GUARDED_BY(mutex_){0};  ///< in coarseNow's time
};

}  // namespace qor::socket
