#include "bench/compare/Plan.h"

#include <algorithm>

#include "bench/compare/Conversions.h"
#include "bench/compare/TypicalMessages.h"

namespace qor::bench {

namespace {

/// The maximum size of a message of the channels.
constexpr std::size_t largestMessage = 65'536;

template <class List, class Message>
std::size_t mostPerList(const std::shared_ptr<const Message>& largest) {
  List list;
  write(std::vector{largest}, list);
  return largestMessage / list.ByteSizeLong();
}

std::size_t mostPerList(Measure measure, bool withParameters) {
  constexpr unsigned int largestId = 9'999;
  return measure == Measure::Commands
             ? mostPerList<wire::CommandMessageList>(typicalCommand(largestId, withParameters))
             : mostPerList<wire::NotificationMessageList>(typicalNotification(largestId, withParameters));
}

std::vector<Library> librariesFor(Measure measure, bool withParameters) {
  std::vector libraries{Library::Ours, Library::Bare, Library::Grpc, Library::InProcess};
  if (measure == Measure::ControlRoundTrip) {
    libraries.push_back(Library::BareGuarded);
    libraries.push_back(Library::GrpcBesideStream);
  }
  if (withParameters) libraries.push_back(Library::BareValues);
  const bool isOneWay = measure == Measure::Commands || measure == Measure::Notifications;
  if (isOneWay) libraries.push_back(Library::GrpcBuffered);
  if (measure == Measure::Commands) {
    libraries.push_back(Library::GrpcClient);
    libraries.push_back(Library::GrpcClientBuffered);
  }
  return libraries;
}

/// Turns of whole windows, about this many messages in total. As many turns as possible: a shared machine may
/// be twice as fast in one second as in the next, and that has to affect every carrier alike.
void measure(Case& run, double messages) {
  // Filling and draining the window takes only a small part of a turn, with many engines as well.
  constexpr std::size_t leastWindows = 4;
  const double leastPerTurn = std::max(static_cast<double>(leastWindows * run.window()), 100.0);
  run.turns = std::clamp<std::size_t>(static_cast<std::size_t>(messages / leastPerTurn), 1, 20);
  const double windows = messages / static_cast<double>(run.window() * run.turns);
  run.messages = std::max(leastWindows, static_cast<std::size_t>(windows)) * run.window() * run.turns;
}

class Planner {
 public:
  explicit Planner(double scale) : scale_(scale) {}

  void add(Case run) {
    for (const auto transport : {Transport::Ipc, Transport::Tcp}) {
      for (const auto cores : {Cores::One, Cores::Each, Cores::Free}) {
        for (const auto library : librariesFor(run.measure, run.withParameters)) {
          run.transport = transport;
          run.cores = cores;
          run.library = library;
          // A single process has no transport and no second core.
          if (library == Library::InProcess && (transport != Transport::Ipc || cores != Cores::One)) continue;
          // Only round trips depend on a dedicated core.
          if (cores == Cores::Each && !run.isRoundTrip()) continue;
          const double some = run.withParameters ? 30'000 : 75'000;
          // Messages in long lists pass faster.
          const double messages = run.isRoundTrip() ? 2'500 : run.perList < 100 ? some : 2 * some;
          measure(run, scale_ * messages);
          cases_.push_back(run);
        }
      }
    }
  }

  /// Many engines in one host, and all batch sizes, to see how the cost of a command grows.
  void addGrowth() {
    for (const std::size_t engines : {1U, 2U, 5U, 10U, 20U, 50U, 100U, 200U}) addOfOurs(engines, 10);
    for (const std::size_t perList : {2U, 5U, 20U, 50U, 200U}) addOfOurs(1, perList);
  }

  std::vector<Case> cases() && { return std::move(cases_); }

 private:
  void addOfOurs(std::size_t engines, std::size_t perList) {
    for (const auto library : {Library::Ours, Library::Bare}) {
      Case run{.library = library, .cores = Cores::One, .perList = perList, .engines = engines};
      measure(run, scale_ * 75'000);
      const bool isPlanned = engines == 1 && perList == 10;
      if (!isPlanned) cases_.push_back(run);
    }
  }

  const double scale_;
  std::vector<Case> cases_;
};

}  // namespace

std::vector<Case> plan(double scale) {
  Planner planner(scale);
  planner.add({.measure = Measure::ControlRoundTrip});
  for (const bool withParameters : {false, true}) {
    planner.add({.measure = Measure::CommandRoundTrip, .withParameters = withParameters});
    for (const auto measure : {Measure::Commands, Measure::Notifications}) {
      for (const std::size_t perList :
           {std::size_t{1}, std::size_t{10}, std::size_t{100}, mostPerList(measure, withParameters)}) {
        planner.add({.measure = measure, .withParameters = withParameters, .perList = perList});
      }
    }
  }
  planner.addGrowth();
  return std::move(planner).cases();
}

std::string nameOf(const Case& run) {
  const auto text = [](const auto& value) { return nlohmann::json(value).template get<std::string>(); };
  std::string name = text(run.measure);
  if (!run.isRoundTrip()) name += " in lists of " + std::to_string(run.perList);
  if (run.measure != Measure::ControlRoundTrip)
    name += run.withParameters ? ", 5 parameters" : ", no parameters";
  if (run.engines > 1) name += ", " + std::to_string(run.engines) + " engines";
  return name + ", " + text(run.library) + ", " + text(run.transport) + ", " + text(run.cores);
}

}  // namespace qor::bench
