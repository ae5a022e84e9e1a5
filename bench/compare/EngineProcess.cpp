#include "bench/compare/EngineProcess.h"

#include <memory>

#include "bench/compare/Arrivals.h"
#include "bench/compare/InParallel.h"
#include "bench/compare/Line.h"
#include "bench/compare/MessagePool.h"
#include "bench/compare/Peer.h"
#include "bench/compare/Placement.h"
#include "bench/compare/Stopwatch.h"
#include "bench/compare/TypicalMessages.h"
#include "bench/compare/WindowedSender.h"

namespace qor::bench {

namespace {

/// The engines of a run, all in one process, and their measurement.
class Engines {
 public:
  Engines(const EngineTask& task, const Line& line)
      : run_(task.run),
        line_(line),
        notifications_(run_, typicalNotification),
        arrivals_(run_,
                  [this] {
                    if (run_.measure == Measure::Commands) line_.giveSign();
                  }),
        sender_(run_, line_, [this](std::size_t list, bool moreFollow) {
          ends_.front()->push(notifications_.list(list), moreFollow);
        }) {
    for (std::size_t number = 0; number < run_.engines; ++number) {
      ends_.push_back(makeEngineEnd(run_, task.addresses.at(number),
                                    [this, of = arrivals_.of(number)](const Arrival& command) mutable {
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
    line_.takeSign();
    step(run_.warmUp());
    Stopwatch time;
    for (std::size_t turn = 0; turn < run_.turns; ++turn) {
      line_.takeSign();
      time.start();
      step(run_.perTurn());
      time.stop();
    }
    const EngineResult result{time.processorMicrosecondsFor(run_.perTurn() * run_.turns), arrivals_.wrong()};
    line_.give(&result, sizeof result);
    // The host disconnects first.
    line_.takeSign();
  }

 private:
  void step(std::size_t count) {
    if (run_.measure != Measure::Notifications) return line_.takeSign();
    sender_.send(count);
    line_.giveSign();
  }
  void answer(const Arrival& command) { ends_.front()->push(notifications_.list(command.id), false); }

  const Case run_;
  const Line& line_;
  const MessagePool<tamb::INotificationMessage> notifications_;
  Arrivals arrivals_;
  WindowedSender sender_;
  std::vector<std::unique_ptr<EngineEnd>> ends_;
};

}  // namespace

void runEngineProcess(const std::string& taskText) {
  const auto task = nlohmann::json::parse(taskText).get<EngineTask>();
  if (task.run.cores == Cores::Each) stayOnCore(1);
  const Line line(Peer::lineDescriptor, enginePatience);
  Engines(task, line).serve();
}

}  // namespace qor::bench
