#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <utility>

#include "engines/sdk/IAbandonable.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/engines/EngineTest.h"
#include "tests/support/BackgroundCall.h"

namespace qor::engines::test {
namespace {

using qor::test::BackgroundCall;
using qor::test::readBack;
using testing::IsEmpty;
using testing::SizeIs;

/// Polls, at most 20 s, until the condition holds; returns false if it does not.
bool eventually(const std::function<bool()>& holds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!holds()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

/// A hub that passes notifications to a test's function.
class FunctionHub : public tamb::INotificationHubBackEnd {
 public:
  explicit FunctionHub(std::function<void(const Notification&)> function) : function_(std::move(function)) {}
  void PushNotifications(std::vector<Notification> notifications) override {
    for (const auto& each : notifications) function_(each);
  }
  void PushNotification(Notification notification) override { function_(notification); }

 private:
  std::function<void(const Notification&)> function_;
};

/// How a run of the media engine ends on request, and how its signs of life are read.
class Stop : public EngineTest {
 protected:
  void onNotification(const std::function<void(const Notification&)>& function) {
    engine().SetNotificationHubBackEnd(std::make_shared<FunctionHub>([this, function](const auto& each) {
      heard_->OnNotification(each);
      function(each);
    }));
  }
  void abandon(const std::string& reason) { dynamic_cast<IAbandonable&>(engine()).Abandon(reason); }
  bool stopped() const {
    const auto finished = heard_->only("Finished");
    return finished && finished->GetNotificationObject()->GetBool("stopped");
  }
  /// Makes the engine write to a named pipe, "out.fifo", that has no reader yet.
  void makeForAPipe() {
    ASSERT_EQ(::mkfifo(path("out.fifo").c_str(), 0600), 0);
    make(media({{"input", quoted(sharedClip())},
                {"output", quoted(path("out.fifo"))},
                {"settings", R"({"container": "nut"})"}}));
  }
};

/// A named pipe that is open for writing, so that its reader waits.
class Pipe {
 public:
  explicit Pipe(const std::string& path) {
    EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
    descriptor_ = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_GE(descriptor_, 0);
  }
  ~Pipe() { ::close(descriptor_); }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void write(const std::string& bytes) const {
    EXPECT_EQ(::write(descriptor_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  /// Whether its reader has read everything.
  bool isEmpty() const {
    int bytes = 0;
    EXPECT_EQ(::ioctl(descriptor_, FIONREAD, &bytes), 0);
    return bytes == 0;
  }

 private:
  int descriptor_ = -1;
};

TEST_F(Stop, InTheMiddleCompletesTheFileUpToThere) {
  make(media({{"input", quoted(sharedClip())}, {"output", quoted(path("out.mkv"))}}));
  onNotification([this](const auto& each) {
    if (each->GetNotificationLine() == "Progress" && each->GetTime().GetTimeNumber() >= 1'000) {
      engine().RequestStop();
    }
  });
  engine().Run();
  EXPECT_TRUE(stopped()) << failure();
  EXPECT_EQ(engine().GetStatus(), tamb::EngineStatus::Stopped);
  const auto result = readBack(path("out.mkv"));
  EXPECT_NEAR(static_cast<double>(result.pictures.size()), 25, 2);
  EXPECT_NEAR(static_cast<double>(result.samples.size()), 48'000, 3'000);
}

TEST_F(Stop, OfARunThatIsAbandonedLeavesTheEarlierFile) {
  std::ofstream(path("out.mkv")) << "earlier";
  make(media({{"input", quoted(sharedClip())}, {"output", quoted(path("out.mkv"))}}));
  onNotification([this](const auto& each) {
    if (each->GetNotificationLine() == "Progress") abandon("the host has gone");
  });
  const auto waiting = command("Pause", at(100, 1));
  engine().Run();
  EXPECT_EQ(failure(), "the host has gone");
  EXPECT_EQ(engine().GetStatus(), tamb::EngineStatus::Failed);
  EXPECT_EQ(heard_->lines().back(), "Failed");
  EXPECT_EQ(reasonOf(heard_->answerTo(waiting)), "the run was abandoned");
  EXPECT_THAT(fileNames(), testing::ElementsAre("out.mkv"));
  std::string content;
  std::getline(std::ifstream(path("out.mkv")), content);
  EXPECT_EQ(content, "earlier");
}

TEST_F(Stop, OfARunThatIsAbandonedForItsProcessIsNotReported) {
  make(media({{"input", quoted(sharedClip())}, {"output", quoted(path("out.mkv"))}}));
  onNotification([this](const auto& each) {
    if (each->GetNotificationLine() == "Progress") abandon("");
  });
  engine().Run();
  EXPECT_THAT(fileNames(), IsEmpty());
  EXPECT_EQ(heard_->lines().back(), "Progress");
}

TEST_F(Stop, ThatWasAskedForBeforeCompletesTheFileOfARunThatIsThenAbandoned) {
  make(media({{"input", quoted(sharedClip())}, {"output", quoted(path("out.mkv"))}}));
  onNotification([this](const auto& each) {
    if (each->GetNotificationLine() != "Progress") return;
    engine().RequestStop();
    abandon("the host has gone");
  });
  engine().Run();
  EXPECT_TRUE(stopped()) << failure();
  EXPECT_THAT(fileNames(), testing::ElementsAre("out.mkv"));
  EXPECT_FALSE(readBack(path("out.mkv")).pictures.empty());
}

TEST_F(Stop, ByACommandCompletesTheFileOfARunThatIsThenAbandoned) {
  make(media({{"input", quoted(sharedClip())}, {"output", quoted(path("out.mkv"))}}));
  onNotification([this](const auto& each) {
    if (each->GetNotificationLine() == "CommandDone") abandon("the host has gone");
  });
  command("Stop", at(1, 1));
  engine().Run();
  EXPECT_TRUE(stopped()) << failure();
  EXPECT_THAT(readBack(path("out.mkv")).pictures, SizeIs(25));
}

TEST_F(Stop, BeforeTheRunEndsItAtItsStart) {
  make(media({{"input", quoted(sharedClip())}, {"output", quoted(path("out.mkv"))}}));
  engine().RequestStop();
  engine().Run();
  EXPECT_TRUE(stopped());
  EXPECT_THAT(fileNames(), IsEmpty());
}

TEST_F(Stop, EndsAReadThatWaitsForTheFirstByte) {
  const Pipe pipe(path("in.fifo"));
  for (const std::string scheme : {"", "file:"}) {
    heard_ = std::make_shared<Notifications>();
    make(media({{"input", quoted(scheme + path("in.fifo"))}, {"output", quoted(path("out.mkv"))}}));
    BackgroundCall running([&] { engine().Run(); });
    ASSERT_TRUE(eventually([&] { return engine().GetStatus() == tamb::EngineStatus::Running; }));
    EXPECT_THROW(engine().WaitForStop(1), tamb::TAMBRuntimeError);
    engine().Ping(20'000);
    engine().RequestStop();
    engine().WaitForStop(20'000);
    running.get();
    EXPECT_TRUE(stopped()) << failure();
  }
}

TEST_F(Stop, EndsTheWaitForAReader) {
  ASSERT_NO_FATAL_FAILURE(makeForAPipe());
  BackgroundCall running([&] { engine().Run(); });
  ASSERT_TRUE(running.waitUntilBlocked());
  engine().Ping(20'000);
  engine().RequestStop();
  running.get();
  EXPECT_TRUE(stopped()) << failure();
}

TEST_F(Stop, APipeIsWrittenToItsEndForAReaderThatComesLate) {
  ASSERT_NO_FATAL_FAILURE(makeForAPipe());
  BackgroundCall running([&] { engine().Run(); });
  ASSERT_TRUE(running.waitUntilBlocked());
  std::ofstream(path("read.nut"), std::ios::binary) << qor::test::fileBytes(path("out.fifo"));
  running.get();
  EXPECT_TRUE(heard_->only("Finished")) << failure();
  EXPECT_THAT(readBack(path("read.nut")).pictures, SizeIs(50));
}

TEST_F(Stop, EndsAFilterThatFillsALongGap) {
  qor::examples::writeClip(
      {.video = "color=size=16x16:rate=25:duration=1,setpts='PTS+if(gte(N,20),7200/TB,0)',format=yuv420p"},
      path("in.nut"));
  make(media({{"input", quoted(path("in.nut"))},
              {"output", quoted(path("out.nut"))},
              {"videoFilter", R"("fps=25")"}}));
  BackgroundCall running([&] { engine().Run(); });
  // More than there is before the gap.
  ASSERT_TRUE(eventually([&] {
    for (const auto& name : fileNames()) {
      std::error_code gone;
      const auto size = std::filesystem::file_size(path(name), gone);
      if (name.ends_with(".part") && !gone && size > 65'536) return true;
    }
    return false;
  }));
  engine().Ping(20'000);
  engine().RequestStop();
  running.get();
  EXPECT_TRUE(stopped()) << failure();
  EXPECT_LT(heard_->only("Finished")->GetNotificationObject()->GetDouble("duration"), 2);
  EXPECT_TRUE(std::filesystem::exists(path("out.nut")));
}

TEST_F(Stop, EndsAReadThatWaitsForMore) {
  const Pipe pipe(path("in.fifo"));
  make(media({{"input", quoted(path("in.fifo"))}}));
  BackgroundCall running([&] { engine().Run(); });
  pipe.write(qor::test::fileBytes(sharedClip()).substr(0, 5'000));
  ASSERT_TRUE(eventually([&] { return pipe.isEmpty(); }));
  engine().Ping(20'000);
  engine().RequestStop();
  running.get();
  EXPECT_TRUE(stopped()) << failure();
}

TEST_F(Stop, BeforeTheFirstSoundLeavesTheEarlierFile) {
  qor::examples::writeClip({.video = "testsrc2=size=64x48:rate=25:duration=8,format=yuv420p",
                            .audio = "aevalsrc=0.5:s=48000:d=1,asetpts=PTS+7/TB"},
                           path("in.nut"));
  const auto bytes = qor::test::fileBytes(path("in.nut"));
  std::string sound;
  for (int count = 0; count < 64; ++count) sound += std::string("\x00\x40", 2);
  const auto end = bytes.find(sound);
  ASSERT_NE(end, std::string::npos);
  std::ofstream(path("out.mkv")) << "earlier";
  const Pipe pipe(path("in.fifo"));
  make(media({{"input", quoted(path("in.fifo"))}, {"output", quoted(path("out.mkv"))}}));
  BackgroundCall running([&] { engine().Run(); });
  pipe.write(bytes.substr(0, end - 1'000));
  ASSERT_TRUE(eventually([&] { return pipe.isEmpty(); }));
  engine().RequestStop();
  running.get();
  EXPECT_TRUE(stopped()) << failure();
  EXPECT_THAT(heard_->ofLine("StreamLeftOut"), IsEmpty());
  EXPECT_EQ(qor::test::fileBytes(path("out.mkv")), "earlier");
}

TEST_F(Stop, APipeIsReadToItsEnd) {
  const auto bytes = qor::test::fileBytes(sharedClip());
  ASSERT_EQ(::mkfifo(path("in.fifo").c_str(), 0600), 0);
  make(media({{"input", quoted(path("in.fifo"))}}));
  BackgroundCall running([&] { engine().Run(); });
  { std::ofstream(path("in.fifo"), std::ios::binary) << bytes; }
  running.get();
  const auto finished = heard_->only("Finished");
  ASSERT_TRUE(finished) << failure();
  EXPECT_EQ(finished->GetNotificationObject()->GetUint64("videoFrames"), 50U);
}

TEST_F(Stop, EndsAPausedRun) {
  for (const std::int64_t milliseconds : {1'000, 1'001}) {
    heard_ = std::make_shared<Notifications>();
    make(media({{"input", quoted(sharedClip())},
                {"output", quoted(path("out.mkv"))},
                {"audioFilter", R"("volume=1")"}}));
    command("Pause", at(milliseconds, 1'000));
    const auto waiting = filterCommand(at(48'050, 48'000), "volume", "volume", "0");
    BackgroundCall running([&] { engine().Run(); });
    ASSERT_TRUE(heard_->waitFor("CommandDone"));
    engine().RequestStop();
    running.get();
    EXPECT_TRUE(stopped());
    EXPECT_THAT(readBack(path("out.mkv")).samples, SizeIs(48 * milliseconds));
    EXPECT_EQ(heard_->answerTo(waiting)->GetNotificationLine(), "CommandFailed");
  }
}

TEST_F(Stop, EndsAFilterThatNeverEnds) {
  make(media({{"input", quoted(sharedClip())}, {"audioFilter", R"("apad")"}}));
  BackgroundCall running([&] { engine().Run(); });
  ASSERT_TRUE(heard_->waitFor("Progress", 4));
  engine().Ping(20'000);
  engine().RequestStop();
  running.get();
  EXPECT_TRUE(stopped());
}

TEST_F(Stop, ACommandEndsAFilterThatNeverEnds) {
  make(media({{"input", quoted(sharedClip())}, {"audioFilter", R"("apad")"}}));
  BackgroundCall running([&] { engine().Run(); });
  ASSERT_TRUE(heard_->waitFor("Progress", 4));
  command("Stop", now());
  running.get();
  EXPECT_TRUE(stopped());
}

TEST_F(Stop, EndsARunAtTheMediasOwnSpeed) {
  make(media({{"input", quoted(sharedClip())}, {"realTime", "true"}}));
  BackgroundCall running([&] { engine().Run(); });
  ASSERT_TRUE(heard_->waitFor("Started"));
  engine().Ping(20'000);
  engine().RequestStop();
  running.get();
  EXPECT_TRUE(stopped());
}

TEST_F(Stop, IsWaitedForOnlyWhileARunIsUnderWay) {
  make(media({{"input", quoted(sharedClip())}}));
  engine().WaitForStop(0);
  engine().Run();
  engine().WaitForStop(0);
}

TEST_F(Stop, PingAnswersAtOnceWhileNothingRuns) {
  make(media({{"input", quoted(sharedClip())}}));
  engine().Ping(0);
  engine().Run();
  engine().Ping(0);
}

TEST_F(Stop, PingFailsWhenTheRunHangs) {
  make(media({{"input", quoted(sharedClip())}}));
  std::promise<void> hanging;
  std::promise<void> released;
  onNotification([&](const auto& each) {
    if (each->GetNotificationLine() == "Started") {
      hanging.set_value();
      released.get_future().wait();
    }
  });
  BackgroundCall running([&] { engine().Run(); });
  hanging.get_future().wait();
  EXPECT_EQ(engine().GetStatus(), tamb::EngineStatus::Running);
  EXPECT_THROW(engine().Ping(20), tamb::TAMBRuntimeError);
  EXPECT_THROW(engine().Run(), tamb::TAMBRuntimeError);
  released.set_value();
  running.get();
  EXPECT_FALSE(stopped());
}

}  // namespace
}  // namespace qor::engines::test
