#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "runtime/inproc/Network.h"

namespace qor::test {

/// How many polls a receiver that has nothing to receive begins in a second, as far as they are noticed;
/// nothing when it stops polling. A busy machine lets fewer of them be noticed, never more.
inline std::optional<std::size_t> idlePollsInASecond(const std::string& socketName) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::seconds(1);
  std::size_t polls = 0;
  // Looked at whenever something changes in the network, which is when a poll begins to wait.
  const bool polledOn = socket::inproc::waitUntil(socketName, [&](const socket::inproc::SocketState& state) {
    if (state.blockedIn != socket::inproc::Operation::Poll) return false;
    if (Clock::now() >= end) return true;
    ++polls;
    return false;
  });
  return polledOn ? std::optional(polls) : std::nullopt;
}

}  // namespace qor::test
