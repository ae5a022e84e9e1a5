// A host with one remote engine; a test controls the stages of its life. Input lines:
//
//   wire SERVICE DOCUMENT   instantiate, configure and submit; DOCUMENT is the engine's description
//   run                     Run
//   ping MS, stop, await MS Ping, RequestStop, WaitForStop
//   watch                   wait until the host knows that its engine runs; status and notifications arrive
//                           independently
//   push COUNT NAME         push COUNT commands to the step "test"
//   slow MS                 from now on the subscriber takes MS for each notification
//   destroy                 release the engine
//   held                    the resources of this process: "held DESCRIPTORS THREADS KIBIBYTES"
//   quit
//
// Output lines: "NAME returned after MS" or "NAME threw after MS: TEXT" for each call, and for each
// notification "notification LINE COMMAND-ID TEXT", where TEXT is its reason or its value. "destroying" is
// printed before a release starts.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>

#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/EngineDescription.h"
#include "runtime/tamb/FactoryRegistry.h"
#include "runtime/tamb/PluginLoader.h"
#include "tests/process/DrivenProgram.h"
#include "tests/support/Eventually.h"

namespace {

using tamb::TambType;

constexpr const char* workflowManager = "staged";
constexpr unsigned int engineId = 1;

class Listener : public tamb::INotificationCallback {
 public:
  explicit Listener(qor::test::DrivenProgram& program) : program_(program) {}

  void OnNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override {
    program_.say("notification " + notification->GetNotificationLine() + ' ' +
                 std::to_string(notification->GetCommandId()) + ' ' + textOf(*notification));
    // The fault itself: a host that is slow with each.
    std::this_thread::sleep_for(std::chrono::milliseconds(millisecondsForEach.load()));
  }

  std::atomic<unsigned int> millisecondsForEach{0};

 private:
  static std::string textOf(const tamb::INotificationMessage& notification) {
    const auto object = notification.GetNotificationObject();
    if (!object) return {};
    if (object->HasKey("reason")) return object->GetUTF8String("reason");
    if (object->HasKey("value")) return std::to_string(object->GetUint64("value"));
    return {};
  }

  qor::test::DrivenProgram& program_;
};

class Host {
 public:
  explicit Host(qor::test::DrivenProgram& program)
      : program_(program), listener_(std::make_shared<Listener>(program)) {}

  void call(const std::string& name, const std::string& text) {
    std::istringstream words(text);
    if (name == "wire") return wire(words);
    if (name == "run") return engine().Run();
    if (name == "ping") return engine().Ping(number(words));
    if (name == "stop") return engine().RequestStop();
    if (name == "await") return engine().WaitForStop(number(words));
    if (name == "watch") return watch();
    if (name == "push") return push(words);
    if (name == "slow") return listener_->millisecondsForEach.store(number(words));
    if (name == "destroy") return destroy();
    if (name == "held") return tellWhatIsHeld();
    throw std::invalid_argument("unknown call \"" + name + '"');
  }

 private:
  tamb::IEngineFrontEnd& engine() const {
    if (!engine_) throw std::logic_error("there is no engine");
    return *engine_;
  }

  static unsigned int number(std::istringstream& words) {
    unsigned int number = 0;
    words >> number;
    if (!words) throw std::invalid_argument("a number is missing");
    return number;
  }

  void wire(std::istringstream& words) {
    std::string service;
    std::string document;
    words >> service;
    std::getline(words >> std::ws, document);
    const auto factory = tamb::FindFactory(tamb::ElementFactoryType::Engine, "RemoteEngine");
    const auto config = tamb::CreateParametersCollectionInstance(
        factory->registryEntry->GetParametersCollectionPrototype("init_config"));
    config->SetUTF8String("QorServiceEndpoint", service);
    std::tie(engine_, commands_, notifications_) = tamb::InstantiateEngine("RemoteEngine", config);
    commands_->SetWorkflowManagerId(workflowManager);
    commands_->SetEngineId(engineId);
    notifications_->Subscribe(listener_);
    engine_->SetInitConfig(config);
    engine_->AddEngineDescription(
        std::make_shared<tamb::EngineDescription>(workflowManager, document, engineId));
  }

  void watch() const {
    // A wait for its stop fails, since it has not stopped.
    const auto isHeardToRun = [this] {
      try {
        engine().WaitForStop(0);
        return false;
      } catch (const std::runtime_error&) {
        return true;
      }
    };
    if (!qor::test::eventually(isHeardToRun)) throw std::runtime_error("the engine is not heard to run");
  }

  void push(std::istringstream& words) {
    const unsigned int count = number(words);
    std::string name;
    words >> name;
    if (!commands_) throw std::logic_error("there is no engine");
    for (unsigned int i = 0; i < count; ++i) {
      commands_->PushCommand(
          std::make_shared<tamb::CommandMessage>(tamb::CommandFields{.commandName = name,
                                                                     .commandId = ++lastCommandId_,
                                                                     .workflowManagerId = workflowManager,
                                                                     .engineId = engineId,
                                                                     .stepId = "test"}));
    }
  }

  void destroy() {
    program_.say("destroying");
    commands_.reset();
    notifications_.reset();
    engine_.reset();
  }

  void tellWhatIsHeld() {
    const auto entriesOf = [](const char* directory) {
      return std::distance(std::filesystem::directory_iterator(directory),
                           std::filesystem::directory_iterator());
    };
    std::ifstream statm("/proc/self/statm");
    long size = 0;
    long resident = 0;
    statm >> size >> resident;
    std::ostringstream text;
    text << "held " << entriesOf("/proc/self/fd") << ' ' << entriesOf("/proc/self/task") << ' '
         << resident * ::sysconf(_SC_PAGESIZE) / 1024;
    program_.say(text.str());
  }

  qor::test::DrivenProgram& program_;
  const std::shared_ptr<Listener> listener_;
  std::shared_ptr<tamb::IEngineFrontEnd> engine_;
  std::shared_ptr<tamb::ICommandProcessorFrontEnd> commands_;
  std::shared_ptr<tamb::INotificationHubFrontEnd> notifications_;
  std::atomic<unsigned int> lastCommandId_{0};
};

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount != 2) {
    std::cerr << "usage: staged_host PLUGIN\n";
    return 2;
  }
  tamb::LoadPlugin(arguments[1]);
  qor::test::DrivenProgram program;
  Host host(program);
  program.say("ready");
  for (std::string line; qor::test::DrivenProgram::nextLine(line);) {
    program.obey(line, [&host](const std::string& name, const std::string& text) { host.call(name, text); });
  }
  // The calls use the host.
  program.joinCalls();
  return 0;
}
