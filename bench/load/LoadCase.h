#pragma once

#include <cstddef>
#include <string>

namespace qor::bench {

enum class Channel { Commands, Notifications };
enum class Library { Ours, Bare };

/// One load: so many messages, in lists of one size, over one channel. Sender and receiver are given the
/// same.
struct LoadCase {
  Channel channel = Channel::Commands;
  Library library = Library::Ours;
  bool withParameters = false;
  std::size_t messagesPerList = 1;
  /// That are measured; a multiple of what is under way at once.
  std::size_t messages = 0;

  /// How many messages may be under way: enough to keep both sides busy, less than any queue holds.
  std::size_t window() const { return messagesPerList == 1 ? 1'000 : 100 * messagesPerList; }
  /// The receiver tells the sender of so many messages at once.
  std::size_t messagesPerCredit() const { return window() / 4; }
  /// Sent ahead of those that are measured: connections, queues and reused messages grow to their size.
  std::size_t warmUp() const { return 20 * window(); }
  std::size_t total() const { return warmUp() + messages; }

  /// Without the library, which it is compared by.
  std::string name() const {
    return std::string(channel == Channel::Commands ? "commands" : "notifications") + " in lists of " +
           std::to_string(messagesPerList) + (withParameters ? ", 5 parameters" : ", no parameters");
  }
};

}  // namespace qor::bench
