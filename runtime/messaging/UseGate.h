#pragma once

#include <atomic>
#include <cstdint>

namespace qor::socket {

/// Admits users while it is open; shutting it can wait until the last user has left. Entering and leaving
/// cost one atomic operation each, because every send and receive does both.
class UseGate {
 public:
  /// One user's stay; converts to false if the gate was shut.
  class Visit {
   public:
    explicit Visit(UseGate& gate) : gate_(gate), inside_(gate.enter()) {}
    ~Visit() {
      if (inside_) gate_.leave();
    }
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;
    explicit operator bool() const { return inside_; }

   private:
    UseGate& gate_;
    const bool inside_;
  };

  bool isOpen() const { return (state_.load() & shutBit) == 0; }
  void open() { state_.fetch_and(~shutBit); }
  /// Admits no new users from now on; some may still be inside.
  void shut() { state_.fetch_or(shutBit); }
  /// Waits after shut() until no user is inside: as long as the longest current stay.
  void waitUntilEmpty() {
    for (auto state = state_.load(); state != shutBit; state = state_.load()) state_.wait(state);
  }

 private:
  static constexpr std::uint32_t shutBit = 1U << 31U;

  bool enter() {
    // Rejected users are not counted: frequent retries would otherwise keep the gate from becoming empty.
    if (!isOpen()) return false;
    if ((state_.fetch_add(1) & shutBit) == 0) return true;
    leave();
    return false;
  }
  void leave() {
    if (state_.fetch_sub(1) == (shutBit | 1U)) state_.notify_all();
  }

  /// The number of users inside, and a bit that is set while the gate is shut.
  std::atomic<std::uint32_t> state_{shutBit};
};

}  // namespace qor::socket
