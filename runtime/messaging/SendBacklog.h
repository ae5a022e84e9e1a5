#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <deque>
#include <stdexcept>
#include <utility>

#include "runtime/messaging/SocketLabel.h"

namespace qor::socket {

/// The messages that a publisher keeps until its subscribers can take them, in order and bounded. A publisher
/// whose messages supersede each other keeps only the newest. Not thread-safe.
template <class Message>
class SendBacklog {
 public:
  /// About half a minute of the busiest channel, and affordable for a host with a hundred engines.
  static constexpr std::size_t maximumCount = 100'000;
  static constexpr std::size_t maximumBytes = std::size_t{64} * 1024 * 1024;

  explicit SendBacklog(bool newestOnly) : newestOnly_(newestOnly) {}

  /// Throws std::runtime_error, without keeping `message`, if there is no room.
  void keep(Message message, std::size_t size, const SocketLabel& label) {
    if (newestOnly_) clear();
    if (!hasRoom(size)) {
      throw std::runtime_error(fmt::format(
          "{}: queue full: {} messages of {} bytes in all are waiting for a subscriber, the limit "
          "is {} messages or {} bytes",
          label.text(), messages_.size(), bytes_, maximumCount, maximumBytes));
    }
    messages_.emplace_back(std::move(message), size);
    bytes_ += size;
  }

  /// Whether keep would accept a message of that size.
  bool hasRoom(std::size_t size) const {
    return newestOnly_ || (messages_.size() < maximumCount && bytes_ + size <= maximumBytes);
  }
  bool isNewestOnly() const { return newestOnly_; }
  bool empty() const { return messages_.empty(); }
  std::size_t count() const { return messages_.size(); }
  Message& oldest() { return messages_.front().first; }
  void dropOldest() {
    bytes_ -= messages_.front().second;
    messages_.pop_front();
  }

 private:
  void clear() {
    messages_.clear();
    bytes_ = 0;
  }

  const bool newestOnly_;
  std::deque<std::pair<Message, std::size_t>> messages_;
  std::size_t bytes_ = 0;
};

}  // namespace qor::socket
