#include "bench/compare/HostProcess.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "bench/compare/Arrivals.h"
#include "bench/compare/Case.h"
#include "bench/compare/Ends.h"
#include "bench/compare/EngineProcess.h"
#include "bench/compare/InParallel.h"
#include "bench/compare/Line.h"
#include "bench/compare/MeetingPlace.h"
#include "bench/compare/MessagePool.h"
#include "bench/compare/Peer.h"
#include "bench/compare/Placement.h"
#include "bench/compare/RoundTrips.h"
#include "bench/compare/Stopwatch.h"
#include "bench/compare/TypicalMessages.h"
#include "bench/compare/WindowedSender.h"

namespace qor::bench {

namespace {

/// The host of a run, and the measurement of its round trips.
class Host {
 public:
  /// `onCredit` is called whenever the sender of notifications gets credit.
  Host(const Case& run, std::function<void()> onCredit)
      : run_(run),
        commands_(run_, typicalCommand),
        arrivals_(run_, std::move(onCredit)),
        roundTrips_([this](std::size_t number) { push(number, false); }) {}

  ~Host() { destroyInParallel(ends_); }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  Arrived arrived(std::size_t engine) {
    return [this, of = arrivals_.of(engine)](const Arrival& notification) mutable {
      of(notification);
      if (run_.measure == Measure::CommandRoundTrip) roundTrips_.ended();
    };
  }
  void add(std::unique_ptr<HostEnd> end) { ends_.push_back(std::move(end)); }
  void push(std::size_t list, bool moreFollow) {
    // The answer to the first command may arrive while that is still being pushed, on the thread that pushes
    // the next one. Within one process that is the same thread.
    std::unique_lock lock(pushing_, std::defer_lock);
    if (run_.library != Library::InProcess) lock.lock();
    ends_[list % ends_.size()]->push(commands_.list(list), moreFollow);
  }
  /// The number of messages of either kind.
  Latencies makeRoundTrips(std::size_t count) {
    return run_.measure == Measure::CommandRoundTrip ? roundTrips_.run(count) : ping(count);
  }
  std::size_t wrong() const { return arrivals_.wrong(); }

 private:
  Latencies ping(std::size_t count) {
    Latencies latencies;
    for (std::size_t sent = 0; sent < count; ++sent) {
      const auto start = Latencies::Clock::now();
      ends_.front()->ping();
      latencies.add(Latencies::Clock::now() - start);
    }
    return latencies;
  }

  const Case run_;
  const MessagePool<tamb::ICommandMessage> commands_;
  Arrivals arrivals_;
  RoundTrips roundTrips_;
  std::mutex pushing_;
  std::vector<std::unique_ptr<HostEnd>> ends_;
};

/// A case that is set up once and measured turn by turn.
class Measured {
 public:
  explicit Measured(const Case& run) : run_(run) {}
  virtual ~Measured() = default;
  Measured(const Measured&) = delete;
  Measured& operator=(const Measured&) = delete;

  void warmUp() { step(run_.warmUp()); }
  void takeTurn() {
    // The first round trips find cold caches: they would exceed one in a hundred.
    if (run_.isRoundTrip()) host().makeRoundTrips(20);
    time_.start();
    const Latencies latencies = step(run_.perTurn());
    time_.stop();
    latencies_.append(latencies);
  }
  Result result() {
    const std::size_t messages = run_.perTurn() * run_.turns;
    Result result;
    if (run_.isRoundTrip()) result = latencies_.result();
    result.perSecond = static_cast<double>(messages) / time_.seconds();
    result.hostMicroseconds = time_.processorMicrosecondsFor(messages);
    finish(result);
    return result;
  }

 protected:
  const Case& run() const { return run_; }

 private:
  /// Measures this many messages or round trips, from the start of the first to the arrival of the last, and
  /// the duration of each round trip.
  virtual Latencies step(std::size_t count) = 0;
  virtual Host& host() = 0;
  /// Adds the values that only the engine process knows.
  virtual void finish(Result& result) = 0;

  const Case run_;
  Latencies latencies_;
  Stopwatch time_;
};

class BetweenProcesses : public Measured {
 public:
  explicit BetweenProcesses(const Case& run)
      : Measured(run),
        place_(run.transport, run.engines),
        engine_(engineRole, nlohmann::json(EngineTask{run, place_.ofEngines()}).dump(), enginePatience),
        sender_(run, line(), [this](std::size_t list, bool moreFollow) { host_->push(list, moreFollow); }) {
    // Started before this process is confined, because the child inherits the confinement.
    if (run.cores == Cores::Each) stayOnCore(0);
    host_ = std::make_unique<Host>(run, [this] {
      if (this->run().measure == Measure::Notifications) line().giveSign();
    });
    for (std::size_t number = 0; number < run.engines; ++number) {
      host_->add(makeHostEnd(run, place_.ofEngines()[number], host_->arrived(number)));
    }
    line().takeSign();
  }

 private:
  const Line& line() const { return engine_.line(); }

  Latencies step(std::size_t count) override {
    Latencies latencies;
    line().giveSign();
    if (run().measure == Measure::Notifications) {
      line().takeSign();
      return latencies;
    }
    if (run().measure == Measure::Commands) {
      sender_.send(count);
    } else {
      latencies = host_->makeRoundTrips(count);
    }
    line().giveSign();
    return latencies;
  }
  Host& host() override { return *host_; }

  void finish(Result& result) override {
    EngineResult engineResult{};
    line().take(&engineResult, sizeof engineResult);
    result.engineMicroseconds = engineResult.microseconds;
    result.wrong = host_->wrong() + engineResult.wrong;
    host_.reset();
    line().giveSign();
    engine_.waitForItsEnd();
  }

  const MeetingPlace place_;
  Peer engine_;
  WindowedSender sender_;
  std::unique_ptr<Host> host_;
};

class InOneProcess : public Measured {
 public:
  explicit InOneProcess(const Case& run)
      : Measured(run),
        notifications_(run, typicalNotification),
        commandArrivals_(run, [] {}),
        host_(run, [] {}) {
    auto ends = makeLocalEnds(
        [this, of = commandArrivals_.of(0)](const Arrival& command) mutable {
          of(command);
          if (this->run().measure == Measure::CommandRoundTrip) notify(command.id);
        },
        host_.arrived(0));
    host_.add(std::move(ends.host));
    engine_ = std::move(ends.engine);
  }

 private:
  Latencies step(std::size_t count) override {
    if (run().isRoundTrip()) return host_.makeRoundTrips(count);
    for (const std::size_t end = sent_ + count; sent_ < end; sent_ += run().perList) {
      const std::size_t list = sent_ / run().perList;
      if (run().measure == Measure::Commands) {
        host_.push(list, false);
      } else {
        notify(list);
      }
    }
    return {};
  }
  Host& host() override { return host_; }
  void finish(Result& result) override { result.wrong = host_.wrong() + commandArrivals_.wrong(); }
  void notify(std::size_t list) { engine_->push(notifications_.list(list), false); }

  const MessagePool<tamb::INotificationMessage> notifications_;
  Arrivals commandArrivals_;
  Host host_;
  std::unique_ptr<EngineEnd> engine_;
  std::size_t sent_ = 0;
};

std::unique_ptr<Measured> setUp(const Case& run) {
  if (run.library == Library::InProcess) return std::make_unique<InOneProcess>(run);
  return std::make_unique<BetweenProcesses>(run);
}

}  // namespace

void runHostProcess(const std::string& caseText) {
  const auto run = nlohmann::json::parse(caseText).get<Case>();
  const Line line(Peer::lineDescriptor, hostPatience);
  if (run.cores == Cores::One) stayOnCore(0);
  const auto measured = setUp(run);
  measured->warmUp();
  line.giveSign();
  for (std::size_t turn = 0; turn < run.turns; ++turn) {
    line.takeSign();
    measured->takeTurn();
    line.giveSign();
  }
  line.takeSign();
  const Result result = measured->result();
  line.give(&result, sizeof result);
}

}  // namespace qor::bench
