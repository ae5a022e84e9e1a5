#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>

#include "runtime/messaging/RefusalLog.h"
#include "runtime/messaging/SocketLabel.h"
#include "runtime/zmq/ForeignDescriptor.h"
#include "runtime/zmq/Subscribers.h"

namespace qor::socket {

/// Decides which subscribers a publisher serves: as many as its endpoint allows. Others stay connected and
/// receive nothing. When a reader has disconnected, they are disconnected, too; their sockets reconnect and
/// subscribe again by themselves, and the first to do so is admitted. A peer that cannot be distinguished
/// from another one is also disconnected, because its next attempt is unambiguous.
///
/// Not thread-safe.
class AdmittedReaders {
 public:
  AdmittedReaders(Subscribers& subscribers, unsigned int limit, const SocketLabel& label)
      : subscribers_(subscribers), limit_(limit), refusals_(label, limit) {}

  /// Processes all reports. Returns true if a reader was admitted. Waits at most some milliseconds, and only
  /// if peers have disconnected. Throws as throwZmqError.
  bool update();
  bool any() const { return !admitted_.empty(); }

  RefusalLog& refusals() { return refusals_; }

 private:
  void takeMessages();
  void onMessage(const Subscribers::Message& message);
  bool takeEnds();
  void waitUntilEndedAreClosed();
  void forgetEnded();
  void disconnectNewcomers();
  bool admitLatest();
  void refuseNewcomers();
  bool isFull() const { return admitted_.size() >= limit_; }

  Subscribers& subscribers_;
  const std::size_t limit_;
  RefusalLog refusals_;
  // Identified by their descriptors:
  std::map<int, ForeignDescriptor> admitted_;
  std::set<int> waiting_;                     ///< subscribed, but refused
  std::map<int, ForeignDescriptor> closing_;  ///< have ended; libzmq may still pass on their data
  // Empty between two updates:
  std::set<int> newcomers_;    ///< have subscribed
  std::optional<int> latest_;  ///< the newcomer whose subscription was the last message
  std::set<int> ended_;        ///< have disconnected
};

}  // namespace qor::socket
