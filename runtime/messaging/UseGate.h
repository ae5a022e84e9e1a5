#pragma once

#include <atomic>
#include <cstdint>

namespace qor::socket {

/// Lets users into something while it is open, and lets whoever shuts it wait until the last one has left.
/// Going in and out costs one atomic operation each: every send and receive passes here.
class UseGate {
 public:
  /// One user's stay; false when the gate was shut.
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
  /// Nobody comes in from now on; those inside may still be there.
  void shut() { state_.fetch_or(shutBit); }
  /// Waits, after shut(), until nobody is inside: as long as the longest stay that is under way.
  void waitUntilEmpty() {
    for (auto state = state_.load(); state != shutBit; state = state_.load()) state_.wait(state);
  }

 private:
  static constexpr std::uint32_t shutBit = 1U << 31U;

  bool enter() {
    // Who finds the gate shut is not counted: many who try again and again would keep it from being empty.
    if (!isOpen()) return false;
    if ((state_.fetch_add(1) & shutBit) == 0) return true;
    leave();
    return false;
  }
  void leave() {
    if (state_.fetch_sub(1) == (shutBit | 1U)) state_.notify_all();
  }

  /// The number of users inside, and the bit that says that the gate is shut.
  std::atomic<std::uint32_t> state_{shutBit};
};

}  // namespace qor::socket
