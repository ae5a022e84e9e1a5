#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "runtime/processes/ChildProcess.h"

namespace qor::processes {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::HasSubstr;

constexpr seconds patience{20};

/// Uses up all descriptors of this process.
class NoDescriptors {
 public:
  NoDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit few{.rlim_cur = 256, .rlim_max = before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
    for (int last = ::dup(STDERR_FILENO); last >= 0; last = ::dup(STDERR_FILENO)) taken_.push_back(last);
  }
  ~NoDescriptors() {
    for (const int descriptor : taken_) ::close(descriptor);
    ::setrlimit(RLIMIT_NOFILE, &before_);
  }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  rlimit before_{};
  std::vector<int> taken_;
};

ChildProcess shell(const std::string& script, const std::string& input = "") {
  return ChildProcess("/bin/sh", {"-c", script}, input);
}

std::ptrdiff_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

TEST(AChildProcess, IsGivenItsInputAndReadLineByLine) {
  auto child = shell("cat; echo last", "first\nsecond\n");
  EXPECT_EQ(child.readLine(patience), "first");
  EXPECT_EQ(child.readLine(patience), "second");
  EXPECT_EQ(child.readLine(patience), "last");
  EXPECT_EQ(child.readLine(patience), std::nullopt);
  EXPECT_EQ(child.waitForEnd(patience), 0);
}

TEST(AChildProcess, HasAChannelForLinesThatNothingElseIsPrintedTo) {
  ChildProcess child("/bin/sh", {"-c", "echo printed; echo reported >&3"}, "",
                     ChildProcess::Lines::OnLineDescriptor);
  EXPECT_EQ(child.readLine(patience), "reported");
  EXPECT_EQ(child.readLine(patience), std::nullopt);
  EXPECT_EQ(child.waitForEnd(patience), 0);
}

TEST(AChildProcess, TakesAnInputThatItDoesNotRead) {
  auto child = shell("exit 7", std::string(60'000, 'x'));
  const auto status = child.waitForEnd(patience);
  ASSERT_TRUE(status);
  EXPECT_EQ(describeStatus(*status), "exit code 7");
}

TEST(AChildProcess, IsNotWaitedForLongerThanWanted) {
  auto child = shell("echo ready; kill -STOP $$; echo continued");
  ASSERT_EQ(child.readLine(patience), "ready");
  EXPECT_EQ(child.readLine(milliseconds(20)), std::nullopt);
  EXPECT_EQ(child.waitForEnd(milliseconds(20)), std::nullopt);
  EXPECT_EQ(child.reap(), std::nullopt);
  // Whether it has already stopped or not.
  while (!child.waitForEnd(milliseconds(10))) child.signal(SIGCONT);
  EXPECT_EQ(child.readLine(patience), "continued");
}

TEST(AChildProcess, IsSeenToEndWithoutADescriptorToSpare) {
  auto child = shell("sleep 0.1; exit 6");
  const NoDescriptors areLeft;
  const auto start = std::chrono::steady_clock::now();
  const auto status = child.waitForEnd(patience);
  ASSERT_TRUE(status);
  EXPECT_EQ(describeStatus(*status), "exit code 6");
  EXPECT_LT(std::chrono::steady_clock::now() - start, patience / 2);
}

TEST(AChildProcess, IsReadToItsEndWithoutASpareDescriptor) {
  // Its own child keeps the output open.
  auto child = shell("sleep 60 & echo $!");
  const NoDescriptors areLeft;
  const auto left = child.readLine(patience);
  ASSERT_TRUE(left);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(child.readLine(patience), std::nullopt);
  EXPECT_LT(std::chrono::steady_clock::now() - start, patience / 2);
  ::kill(std::stoi(*left), SIGKILL);
}

TEST(AChildProcess, IsAskedToEndFirst) {
  auto child = shell("trap 'exit 5' TERM; echo ready; while :; do sleep 0.05; done");
  ASSERT_EQ(child.readLine(patience), "ready");
  child.end(patience);
  const auto status = child.reap();
  ASSERT_TRUE(status);
  EXPECT_EQ(describeStatus(*status), "exit code 5");
}

TEST(AChildProcess, IsKilledWhenItDoesNotEndWithinItsGrace) {
  auto child = shell("trap '' TERM; echo ready; while :; do sleep 0.05; done");
  ASSERT_EQ(child.readLine(patience), "ready");
  child.end(milliseconds(100));
  const auto status = child.reap();
  ASSERT_TRUE(status);
  EXPECT_EQ(describeStatus(*status), "signal 9 (Killed)");
  EXPECT_EQ(::waitpid(child.pid(), nullptr, WNOHANG), -1) << "it was not reaped";
}

TEST(AChildProcess, KeepsItsStatusOnceItIsReaped) {
  auto child = shell("exit 3");
  ASSERT_TRUE(child.waitForEnd(patience));
  EXPECT_EQ(WEXITSTATUS(child.reap().value()), 3);
  EXPECT_EQ(WEXITSTATUS(child.waitForEnd(milliseconds(0)).value()), 3);
  // A process that reuses its number must not receive its signals.
  child.signal(SIGKILL);
  EXPECT_EQ(WEXITSTATUS(child.reap().value()), 3);
}

TEST(AChildProcess, ThatIsNotAProgramIsRefusedByName) {
  EXPECT_THAT([] { ChildProcess("/nowhere/no-program", {}, ""); },
              ::testing::ThrowsMessage<std::system_error>(HasSubstr("/nowhere/no-program")));
}

TEST(AChildProcess, LeavesNoDescriptorBehind) {
  const auto before = openDescriptors();
  for (int i = 0; i < 3; ++i) {
    auto child = shell("echo $$");
    EXPECT_TRUE(child.readLine(patience));
    EXPECT_TRUE(child.waitForEnd(patience));
    EXPECT_THROW(ChildProcess("/nowhere/no-program", {}, ""), std::system_error);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST(AChildProcess, HasASessionOfItsOwn) {
  auto child = shell("cut -d' ' -f1,6 /proc/$$/stat");
  const auto pid = std::to_string(child.pid());
  EXPECT_EQ(child.readLine(patience), pid + ' ' + pid);
  EXPECT_TRUE(child.waitForEnd(patience));
}

TEST(AChildProcess, DoesNotInheritWhichSignalsAreBlockedOrIgnoredHere) {
  sigset_t blocked;
  sigset_t before;
  ::sigemptyset(&blocked);
  ::sigaddset(&blocked, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const auto pipeBefore = std::signal(SIGPIPE, SIG_IGN);
  auto terminated = shell("kill -TERM $$; echo survived");
  auto withoutReader = shell("kill -PIPE $$; echo survived");
  std::signal(SIGPIPE, pipeBefore);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(describeStatus(terminated.waitForEnd(patience).value_or(0)), "signal 15 (Terminated)");
  EXPECT_EQ(describeStatus(withoutReader.waitForEnd(patience).value_or(0)), "signal 13 (Broken pipe)");
}

}  // namespace
}  // namespace qor::processes
