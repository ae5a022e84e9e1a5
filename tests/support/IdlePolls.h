#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "runtime/inproc/Network.h"

namespace qor::test {

/// The number of polls that an idle receiver starts within a second, as far as they are noticed; empty if it
/// stops polling. On a busy machine fewer are noticed, never more.
inline std::optional<std::size_t> idlePollsInASecond(const std::string& socketName) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::seconds(1);
  std::size_t polls = 0;
  // Evaluated whenever the network changes, that is when a poll starts to wait.
  const bool polledOn = socket::inproc::waitUntil(socketName, [&](const socket::inproc::SocketState& state) {
    if (state.blockedIn != socket::inproc::Operation::Poll) return false;
    if (Clock::now() >= end) return true;
    ++polls;
    return false;
  });
  return polledOn ? std::optional(polls) : std::nullopt;
}

}  // namespace qor::test
