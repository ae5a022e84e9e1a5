#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/EngineDescription.h"
#include "runtime/tamb/FactoryRegistry.h"
#include "runtime/tamb/PluginLoader.h"
#include "tests/support/Eventually.h"

// A host that repeatedly has many engines at once. After each life it prints its resources: DESCRIPTORS
// THREADS RESIDENT-KIBIBYTES. Resources are freed a moment after they were closed; the host waits for that
// after the last life.

namespace {

constexpr unsigned int ticks = 100;
constexpr std::chrono::seconds patience{60};

/// Counts an engine's notifications.
class Listener : public tamb::INotificationCallback {
 public:
  void OnNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override {
    const std::lock_guard lock(mutex_);
    if (notification->GetNotificationLine() == "Tick") ++ticks_;
    if (notification->GetNotificationLine() == "CommandDone") ++answers_;
    changed_.notify_all();
  }
  void await(unsigned int tickCount, unsigned int answerCount) {
    std::unique_lock lock(mutex_);
    if (changed_.wait_for(lock, patience, [&] { return ticks_ >= tickCount && answers_ >= answerCount; }))
      return;
    throw std::runtime_error("an engine says too little: " + std::to_string(ticks_) + " ticks, " +
                             std::to_string(answers_) + " answers");
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  unsigned int ticks_ = 0;
  unsigned int answers_ = 0;
};

/// One remote engine, from its submission to its disconnection.
class RemoteEngine {
 public:
  RemoteEngine(const std::string& service, unsigned int id) : id_(id) {
    const auto factory = tamb::FindFactory(tamb::ElementFactoryType::Engine, "RemoteEngine");
    const auto config = tamb::CreateParametersCollectionInstance(
        factory->registryEntry->GetParametersCollectionPrototype("init_config"));
    config->SetUTF8String("QorServiceEndpoint", service);
    std::tie(engine_, commands_, notifications_) = tamb::InstantiateEngine("RemoteEngine", config);
    commands_->SetWorkflowManagerId("many");
    commands_->SetEngineId(id);
    notifications_->Subscribe(listener_);
    engine_->SetInitConfig(config);
    engine_->AddEngineDescription(std::make_shared<tamb::EngineDescription>(
        "many", R"({"engine": "test", "notifications": )" + std::to_string(ticks) + "}", id));
    running_ = std::jthread([this] { run(); });
  }
  /// This engine may still be running if another one has failed.
  ~RemoteEngine() {
    if (running_.joinable()) engine_->RequestStop();
  }
  RemoteEngine(const RemoteEngine&) = delete;
  RemoteEngine& operator=(const RemoteEngine&) = delete;

  void live() {
    listener_->await(ticks, 0);
    commands_->PushCommand(
        std::make_shared<tamb::CommandMessage>(tamb::CommandFields{.commandName = "Hello",
                                                                   .commandId = 1,
                                                                   .workflowManagerId = "many",
                                                                   .engineId = id_,
                                                                   .stepId = "test"}));
    listener_->await(ticks, 1);
    engine_->RequestStop();
    running_.join();
    if (!failure_.empty()) throw std::runtime_error("engine " + std::to_string(id_) + ": " + failure_);
  }

 private:
  void run() {
    try {
      engine_->Run();
    } catch (const std::exception& error) {
      failure_ = error.what();
    }
  }

  const unsigned int id_;
  const std::shared_ptr<Listener> listener_ = std::make_shared<Listener>();
  std::shared_ptr<tamb::IEngineFrontEnd> engine_;
  std::shared_ptr<tamb::ICommandProcessorFrontEnd> commands_;
  std::shared_ptr<tamb::INotificationHubFrontEnd> notifications_;
  std::string failure_;  ///< written by the running thread until it is joined
  std::jthread running_;
};

auto entriesOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator());
}

long residentKibibytes() {
  std::ifstream statm("/proc/self/statm");
  long size = 0;
  long resident = 0;
  statm >> size >> resident;
  return resident * ::sysconf(_SC_PAGESIZE) / 1024;
}

void live(const std::string& service, unsigned int engines) {
  std::vector<std::unique_ptr<RemoteEngine>> all;
  for (unsigned int id = 1; id <= engines; ++id) all.push_back(std::make_unique<RemoteEngine>(service, id));
  for (const auto& engine : all) engine->live();
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount != 5) {
    std::fprintf(stderr, "usage: many_engines_host PLUGIN SERVICE ENGINES-AT-ONCE LIVES\n");
    return 2;
  }
  try {
    tamb::LoadPlugin(arguments[1]);
    const int lives = std::atoi(arguments[4]);
    auto fewestDescriptors = std::numeric_limits<std::ptrdiff_t>::max();
    auto fewestThreads = fewestDescriptors;
    for (int life = 1; life <= lives; ++life) {
      live(arguments[2], static_cast<unsigned int>(std::atoi(arguments[3])));
      if (life == lives) {
        qor::test::eventually([&] {
          return entriesOf("/proc/self/fd") <= fewestDescriptors &&
                 entriesOf("/proc/self/task") <= fewestThreads;
        });
      }
      const auto descriptors = entriesOf("/proc/self/fd");
      const auto threads = entriesOf("/proc/self/task");
      fewestDescriptors = std::min(fewestDescriptors, descriptors);
      fewestThreads = std::min(fewestThreads, threads);
      std::printf("%ld %ld %ld\n", static_cast<long>(descriptors), static_cast<long>(threads),
                  residentKibibytes());
      std::fflush(stdout);
    }
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "many_engines_host: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
