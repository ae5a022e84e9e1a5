#include "bench/compare/Rounds.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "bench/compare/Case.h"
#include "bench/compare/HostProcess.h"
#include "bench/compare/Peer.h"
#include "bench/compare/Remote.h"

namespace qor::bench {

namespace {

using nlohmann::json;

std::mt19937& random() {
  static std::mt19937 random(std::random_device{}());
  return random;
}

/// Adds the name of the failed run to the text of a failure.
template <class Step>
void naming(const std::string& name, const Step& step) {
  try {
    step();
  } catch (const std::exception& error) {
    throw std::runtime_error(name + ": " + error.what());
  }
}

/// A run whose host and engine are set up, in their own processes. They wait until it is their turn.
class RunUnderWay {
 public:
  explicit RunUnderWay(json& run) : run_(run), host_(hostRole, run.at("case").dump(), hostPatience) {
    naming(name(), [this] { host_.line().takeSign(); });
  }

  void takeTurn() {
    naming(name(), [this] {
      host_.line().giveSign();
      host_.line().takeSign();
    });
  }

  /// Ends it, without waiting for the end.
  void end() const { host_.line().giveSign(); }

  void takeResult() {
    Result result;
    naming(name(), [&] {
      host_.line().take(&result, sizeof result);
      host_.waitForItsEnd();
    });
    if (result.wrong != 0) {
      std::fprintf(stderr, "%s: %zu messages are wrong\n", name().c_str(), result.wrong);
    }
    run_.at("results").push_back(result);
  }

 private:
  std::string name() const { return run_.at("name").get<std::string>(); }

  json& run_;
  Peer host_;
};

using Work = std::vector<json*>;

/// Groups runs of the same work with different libraries. Runs with many engines are separate: even idle,
/// they would disturb the measurement of others.
std::vector<Work> works(json& runs) {
  std::map<std::string, Work> byText;
  for (json& run : runs) {
    json work = run.at("case");
    if (work.at("engines") == 1) work.erase("library");
    byText[work.dump()].push_back(&run);
  }
  std::vector<Work> all;
  for (const auto& [text, work] : byText) all.push_back(work);
  return all;
}

void measure(Work work) {
  std::shuffle(work.begin(), work.end(), random());
  std::vector<std::unique_ptr<RunUnderWay>> underWay;
  for (json* run : work) underWay.push_back(std::make_unique<RunUnderWay>(*run));
  const std::size_t turns = work.front()->at("case").get<Case>().turns;
  for (std::size_t turn = 0; turn < turns; ++turn) {
    std::shuffle(underWay.begin(), underWay.end(), random());
    for (const auto& run : underWay) run->takeTurn();
  }
  for (const auto& run : underWay) run->end();
  for (const auto& run : underWay) run->takeResult();
}

}  // namespace

void measureRound(json& runs, const std::string& title) {
  auto all = works(runs);
  std::shuffle(all.begin(), all.end(), random());
  std::size_t done = 0;
  for (const Work& work : all) {
    measure(work);
    done += work.size();
    std::fprintf(stderr, "\r%s: %zu of %zu runs ", title.c_str(), done, runs.size());
  }
}

void measureRemoteEngines(json& all, std::size_t rounds) {
  rounds = std::min<std::size_t>(rounds, 3);
  for (json& some : all) {
    const std::string engines = some.at("engines").dump();
    for (std::size_t round = some.at("results").size() + 1; round <= rounds; ++round) {
      std::fprintf(stderr, "\r%s remote engines: round %zu of %zu ", engines.c_str(), round, rounds);
      RemoteResult result;
      naming(engines + " remote engines", [&] {
        Peer host(remoteEnginesRole, engines, remoteEnginesPatience);
        host.line().take(&result, sizeof result);
        host.waitForItsEnd();
      });
      some.at("results").push_back(result);
    }
  }
  std::fprintf(stderr, "\n");
}

}  // namespace qor::bench
