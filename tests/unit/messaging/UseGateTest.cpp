#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <thread>
#include <vector>

#include "runtime/messaging/UseGate.h"
#include "tests/support/BackgroundCall.h"

namespace qor::socket {
namespace {

using test::BackgroundCall;

TEST(UseGate, IsShutAtFirst) {
  UseGate gate;
  EXPECT_FALSE(gate.isOpen());
  EXPECT_FALSE(UseGate::Visit(gate));
}

TEST(UseGate, AdmitsUsersWhileItIsOpen) {
  UseGate gate;
  gate.open();
  EXPECT_TRUE(gate.isOpen());
  const UseGate::Visit first(gate);
  const UseGate::Visit second(gate);
  EXPECT_TRUE(first);
  EXPECT_TRUE(second);
}

TEST(UseGate, AdmitsNoUserOnceItIsShutEvenIfOneIsInside) {
  UseGate gate;
  gate.open();
  const UseGate::Visit inside(gate);
  gate.shut();
  EXPECT_FALSE(gate.isOpen());
  EXPECT_FALSE(UseGate::Visit(gate));
  EXPECT_TRUE(inside);
}

TEST(UseGate, IsEmptyAtOnceWithoutUsers) {
  UseGate gate;
  gate.open();
  { const UseGate::Visit left(gate); }
  gate.shut();
  gate.waitUntilEmpty();
  EXPECT_FALSE(gate.isOpen());
}

TEST(UseGate, WaitsForTheLastOneInside) {
  UseGate gate;
  gate.open();
  std::optional<UseGate::Visit> first(std::in_place, gate);
  std::optional<UseGate::Visit> second(std::in_place, gate);
  gate.shut();
  BackgroundCall emptying([&] { gate.waitUntilEmpty(); });
  EXPECT_TRUE(emptying.waitUntilBlocked());
  first.reset();
  EXPECT_TRUE(emptying.waitUntilBlocked());
  // Rejected users do not count, and do not end the wait.
  EXPECT_FALSE(UseGate::Visit(gate));
  EXPECT_TRUE(emptying.waitUntilBlocked());
  second.reset();
  emptying.get();
}

TEST(UseGate, OpensAgain) {
  UseGate gate;
  for (int i = 0; i < 3; ++i) {
    gate.open();
    EXPECT_TRUE(UseGate::Visit(gate));
    gate.shut();
    gate.waitUntilEmpty();
    EXPECT_FALSE(UseGate::Visit(gate));
  }
}

TEST(UseGate, KeepsAllOutWhileItIsShutHoweverManyTryToGoIn) {
  UseGate gate;
  std::atomic<bool> done = false;
  int guarded = 0;  // Written with the gate shut and read inside: a race if both overlapped.
  std::atomic<int> visits = 0;
  {
    std::vector<std::jthread> visitors;
    visitors.reserve(4);
    for (int i = 0; i < 4; ++i) {
      visitors.emplace_back([&] {
        while (!done) {
          const UseGate::Visit visit(gate);
          if (visit && guarded >= 0) ++visits;
          std::this_thread::yield();
        }
      });
    }
    for (int i = 0; i < 500; ++i) {
      gate.open();
      const int before = visits;
      while (visits == before) std::this_thread::yield();
      gate.shut();
      gate.waitUntilEmpty();
      ++guarded;
    }
    done = true;
  }
  EXPECT_EQ(guarded, 500);
}

}  // namespace
}  // namespace qor::socket
