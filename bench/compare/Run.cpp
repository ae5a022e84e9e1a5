#include "bench/compare/Run.h"

#include <sched.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "bench/compare/Arrivals.h"
#include "bench/compare/Ends.h"
#include "bench/compare/EnginePeer.h"
#include "bench/compare/InParallel.h"
#include "bench/compare/MeetingPlace.h"
#include "bench/compare/MessagePool.h"
#include "bench/compare/ProcessorTime.h"
#include "bench/compare/RoundTrips.h"

namespace qor::bench {

namespace {

/// What the engine's process is told.
struct Task {
  Case run;
  std::vector<Addresses> addresses;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Task, run, addresses)

/// What the engine's process tells at its end. Trivially copyable: it travels as it is.
struct EngineResult {
  double perSecond;  ///< when it sends
  double engineMicroseconds;
  std::size_t wrong;
};

/// This thread, and all that it starts from now on, runs on the core of that number among those it may use.
void confineTo(int wanted) {
  cpu_set_t allowed;
  if (::sched_getaffinity(0, sizeof allowed, &allowed) != 0) {
    throw std::system_error(errno, std::system_category(), "cannot tell which cores there are");
  }
  for (int core = 0; core < CPU_SETSIZE; ++core) {
    if (!CPU_ISSET(core, &allowed) || wanted-- > 0) continue;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(core, &one);
    if (::sched_setaffinity(0, sizeof one, &one) == 0) return;
    throw std::system_error(errno, std::system_category(), "cannot stay on core " + std::to_string(core));
  }
  throw std::runtime_error("there are too few cores to give each process one of its own");
}

/// Sends lists with a window, and the time that it takes from the end of the warm-up until all have come.
class WindowedSender {
 public:
  /// `push` sends the list of that number.
  WindowedSender(const Case& run, const Line& line,
                 std::function<void(std::size_t list, bool moreFollow)> push)
      : run_(run), line_(line), push_(std::move(push)) {}

  void sendUpTo(std::size_t total) {
    while (sent_ < total) {
      while (sent_ - credited_ >= run_.window()) awaitCredit();
      const std::size_t list = sent_ / run_.perList;
      sent_ += run_.perList;
      // The receiver's credit for these is waited for next.
      push_(list, sent_ % run_.perCredit() != 0);
    }
    while (credited_ < total) awaitCredit();
  }

 private:
  void awaitCredit() {
    line_.takeSign();
    credited_ += run_.perCredit();
  }

  const Case run_;
  const Line& line_;
  const std::function<void(std::size_t list, bool moreFollow)> push_;
  std::size_t sent_ = 0;
  std::size_t credited_ = 0;
};

/// Calls `send` with what is to have been sent: the warm-up, and then all, whose time it tells.
template <class Send>
std::pair<double, ProcessorTime> measureSending(const Case& run, const Send& send) {
  send(run.warmUp());
  ProcessorTime processorTime;
  processorTime.start();
  const auto start = std::chrono::steady_clock::now();
  send(run.warmUp() + run.messages);
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
  processorTime.stop();
  return {static_cast<double>(run.messages) / time.count(), processorTime};
}

/// The engines of a run, all in one process, and what they are measured by.
class Engines {
 public:
  Engines(const Task& task, const Line& line)
      : run_(task.run), line_(line), notifications_(run_, typicalNotification), arrivals_(run_, [this] {
          if (run_.measure == Measure::Commands) line_.giveSign();
        }) {
    for (std::size_t number = 0; number < run_.engines; ++number) {
      ends_.push_back(makeEngineEnd(run_, task.addresses.at(number),
                                    [this, of = arrivals_.of(number)](const auto& command) mutable {
                                      of(command);
                                      if (run_.measure == Measure::CommandRoundTrip) answer(command);
                                    }));
    }
  }

  ~Engines() { destroyInParallel(ends_); }
  Engines(const Engines&) = delete;
  Engines& operator=(const Engines&) = delete;

  void serve() {
    line_.giveSign();
    EngineResult result{};
    if (run_.measure == Measure::Notifications) {
      WindowedSender sender(run_, line_, [this](std::size_t list, bool moreFollow) {
        ends_.front()->push(notifications_.list(list), moreFollow);
      });
      const auto [perSecond, processorTime] =
          measureSending(run_, [&](std::size_t total) { sender.sendUpTo(total); });
      result.perSecond = perSecond;
      result.engineMicroseconds = processorTime.microsecondsFor(run_.messages);
    } else {
      ProcessorTime processorTime;
      line_.takeSign();
      processorTime.start();
      line_.takeSign();
      processorTime.stop();
      result.engineMicroseconds = processorTime.microsecondsFor(run_.messages);
      result.wrong = arrivals_.wrong();
    }
    line_.give(&result, sizeof result);
    // The host goes first.
    line_.takeSign();
  }

 private:
  void answer(const tamb::ICommandMessage& command) {
    ends_.front()->push(notifications_.list(command.GetCommandId()), false);
  }

  const Case run_;
  const Line& line_;
  const MessagePool<tamb::INotificationMessage> notifications_;
  Arrivals arrivals_;
  std::vector<std::unique_ptr<EngineEnd>> ends_;
};

/// The host of a run, and what it is measured by.
class Host {
 public:
  /// Without a line nobody waits for credits.
  Host(const Case& run, const Line* line)
      : run_(run),
        line_(line),
        commands_(run_, typicalCommand),
        arrivals_(run_,
                  [this] {
                    if (run_.measure == Measure::Notifications && line_ != nullptr) line_->giveSign();
                  }),
        roundTrips_([this](std::size_t number) { push(number, false); }) {}

  ~Host() { destroyInParallel(ends_); }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  NotificationArrived arrived(std::size_t engine) {
    return [this, of = arrivals_.of(engine)](const auto& notification) mutable {
      of(notification);
      if (run_.measure == Measure::CommandRoundTrip) roundTrips_.ended();
    };
  }
  void add(std::unique_ptr<HostEnd> end) { ends_.push_back(std::move(end)); }
  void push(std::size_t list, bool moreFollow) {
    // The answer to the first command may come while it is still being pushed, on the thread that pushes the
    // next one. In one process that is the same thread.
    std::unique_lock lock(pushing_, std::defer_lock);
    if (line_ != nullptr) lock.lock();
    ends_[list % ends_.size()]->push(commands_.list(list), moreFollow);
  }

  /// Round trips of either kind, between the two signs that `sign` gives.
  template <class Sign>
  Result measureRoundTrips(const Sign& sign) {
    const auto run = [this](std::size_t count) {
      return run_.measure == Measure::CommandRoundTrip ? roundTrips_.run(count) : pings(count);
    };
    run(run_.warmUp());
    ProcessorTime processorTime;
    sign();
    processorTime.start();
    const auto latencies = run(run_.messages);
    processorTime.stop();
    sign();
    Result result = latencies.result();
    result.hostMicroseconds = processorTime.microsecondsFor(run_.messages);
    return result;
  }

  std::size_t wrong() const { return arrivals_.wrong(); }

 private:
  Latencies pings(std::size_t count) {
    Latencies latencies;
    for (std::size_t sent = 0; sent < count; ++sent) {
      const auto start = Latencies::Clock::now();
      ends_.front()->ping();
      latencies.add(Latencies::Clock::now() - start);
    }
    return latencies;
  }

  const Case run_;
  const Line* const line_;
  const MessagePool<tamb::ICommandMessage> commands_;
  Arrivals arrivals_;
  RoundTrips roundTrips_;
  std::mutex pushing_;
  std::vector<std::unique_ptr<HostEnd>> ends_;
};

Result runBetweenProcesses(const Case& run) {
  const MeetingPlace place(run.transport, run.engines);
  if (run.cores == Cores::One) confineTo(0);
  EnginePeer engine(nlohmann::json(Task{run, place.ofEngines()}).dump());
  // The engine's process had to be started first: it would stay there as well.
  if (run.cores == Cores::Each) confineTo(0);
  const Line& line = engine.line();
  Result result;
  {
    Host host(run, &line);
    for (std::size_t number = 0; number < run.engines; ++number) {
      host.add(makeHostEnd(run, place.ofEngines()[number], host.arrived(number)));
    }
    line.takeSign();
    EngineResult engineResult{};
    if (run.measure == Measure::Notifications) {
      ProcessorTime processorTime;
      processorTime.start();
      line.take(&engineResult, sizeof engineResult);
      processorTime.stop();
      result.perSecond = engineResult.perSecond;
      result.hostMicroseconds = processorTime.microsecondsFor(run.warmUp() + run.messages);
    } else if (run.measure == Measure::Commands) {
      WindowedSender sender(run, line,
                            [&host](std::size_t list, bool moreFollow) { host.push(list, moreFollow); });
      const auto [perSecond, processorTime] = measureSending(run, [&](std::size_t total) {
        sender.sendUpTo(total);
        line.giveSign();
      });
      result.perSecond = perSecond;
      result.hostMicroseconds = processorTime.microsecondsFor(run.messages);
      line.take(&engineResult, sizeof engineResult);
    } else {
      result = host.measureRoundTrips([&line] { line.giveSign(); });
      line.take(&engineResult, sizeof engineResult);
    }
    result.engineMicroseconds = engineResult.engineMicroseconds;
    result.wrong = host.wrong() + engineResult.wrong;
  }
  line.giveSign();
  engine.waitForItsEnd();
  return result;
}

Result runInOneProcess(const Case& run) {
  if (run.cores != Cores::Free) confineTo(0);
  Host host(run, nullptr);
  const MessagePool<tamb::INotificationMessage> notifications(run, typicalNotification);
  Arrivals commandArrivals(run, [] {});
  std::unique_ptr<EngineEnd> engine;
  auto ends = makeLocalEnds(
      [&, of = commandArrivals.of(0)](const auto& command) mutable {
        of(command);
        if (run.measure == Measure::CommandRoundTrip) {
          engine->push(notifications.list(command.GetCommandId()), false);
        }
      },
      host.arrived(0));
  host.add(std::move(ends.host));
  engine = std::move(ends.engine);
  Result result;
  if (run.isRoundTrip()) {
    result = host.measureRoundTrips([] {});
  } else {
    std::size_t sent = 0;
    const auto [perSecond, processorTime] = measureSending(run, [&](std::size_t total) {
      for (; sent < total; sent += run.perList) {
        const std::size_t list = sent / run.perList;
        if (run.measure == Measure::Commands) {
          host.push(list, false);
        } else {
          engine->push(notifications.list(list), false);
        }
      }
    });
    result.perSecond = perSecond;
    result.hostMicroseconds = processorTime.microsecondsFor(run.messages);
  }
  result.wrong = host.wrong() + commandArrivals.wrong();
  return result;
}

}  // namespace

Result runCase(const Case& run) {
  return run.library == Library::InProcess ? runInOneProcess(run) : runBetweenProcesses(run);
}

void beTheEngine(const std::string& taskText) {
  const auto task = nlohmann::json::parse(taskText).get<Task>();
  if (task.run.cores == Cores::Each) confineTo(1);
  const Line line(EnginePeer::lineDescriptor);
  Engines(task, line).serve();
}

}  // namespace qor::bench
