#include "programs/host/Session.h"

#include <chrono>
#include <exception>
#include <stdexcept>
#include <utility>

#include "engines/sdk/IAbandonable.h"
#include "engines/sdk/LocalEngine.h"
#include "hosting/EngineLibrary.h"
#include "hosting/EngineRegistry.h"
#include "hosting/TimeLimits.h"
#include "programs/host/HeldErrors.h"
#include "programs/host/Refusal.h"
#include "runtime/console/Limits.h"
#include "runtime/console/LogLine.h"
#include "runtime/console/OneLine.h"
#include "runtime/tamb/CurrentException.h"
#include "runtime/tamb/EngineDescription.h"
#include "runtime/tamb/FactoryRegistry.h"
#include "runtime/tamb/PluginLoader.h"

namespace qor::programs {

namespace {

/// An engine publishes the last notification of a run before the status that ends Run. If no notification
/// arrives for as long as hosts of a dead engine are served, the channel is lost.
constexpr std::chrono::milliseconds channelIsLostAfter = hosting::shortestTakeover;
constexpr auto endMilliseconds =
    static_cast<unsigned int>(std::chrono::milliseconds(hosting::engineStopsWithin).count());

}  // namespace

Session::Session(Workflow workflow, const engines::EngineManual& manual, EngineSource source,
                 std::shared_ptr<Display> display)
    : workflow_(std::move(workflow)),
      messages_(workflow_.messages(manual)),
      description_(std::make_shared<tamb::EngineDescription>(
          workflow_.workflowManagerId, workflow_.description(manual), workflow_.engineId)),
      source_(std::move(source)),
      display_(std::move(display)),
      watcher_(std::make_shared<RunWatcher>(display_, workflow_.commands.size())) {}

Session::~Session() = default;

Session::Engine Session::localEngine() const {
  const hosting::EngineRegistry registry(hosting::registryFolders(source_.engineFolders));
  const auto& registered = registry.engineFor(description_->GetDescription());
  if (registered.library.empty()) {
    throw std::runtime_error("the engine \"" + registered.name +
                             "\" is a program and cannot run in this process; leave out --local");
  }
  const auto local = engines::makeLocalEngine(*description_, hosting::loadEngineLibrary(registered.library));
  auto [hubFrontEnd, hubBackEnd] = tamb::CreateNotificationHub();
  local.engine->SetNotificationHubBackEnd(hubBackEnd);
  return {local.engine, local.commandFrontEnd, hubFrontEnd};
}

Session::Engine Session::remoteEngine() const {
  tamb::LoadPlugin(source_.plugin);
  const auto factory = tamb::FindFactory(tamb::ElementFactoryType::Engine, "RemoteEngine");
  if (!factory)
    throw std::runtime_error(
        "the plug-in \"" + source_.plugin.string() +
        "\" registers no remote engine; expected a plug-in such as libtamb_multiprocess.so");
  const auto config = tamb::CreateParametersCollectionInstance(
      factory->registryEntry->GetParametersCollectionPrototype("init_config"));
  config->SetUTF8String("QorServiceEndpoint", source_.serviceEndpoint);
  config->SetUTF8String("CommunicationTransport", "zeromq");
  auto engine = tamb::InstantiateEngine("RemoteEngine", config);
  std::get<0>(engine)->SetInitConfig(config);
  return engine;
}

Session::Engine Session::startEngine() {
  Engine made = source_.isLocal ? localEngine() : remoteEngine();
  const auto& [engine, commands, notifications] = made;
  engine->SetWorkflowManagerId(workflow_.workflowManagerId);
  engine->SetEngineId(workflow_.engineId);
  commands->SetWorkflowManagerId(workflow_.workflowManagerId);
  commands->SetEngineId(workflow_.engineId);
  notifications->Subscribe(watcher_);
  // Submits a remote engine and connects to it.
  if (!source_.isLocal) engine->AddEngineDescription(description_);
  // One at a time: the size of a batch is limited, and the last command starts the run.
  for (const auto& command : messages_) commands->PushCommand(command);
  return made;
}

std::string Session::startFailure(const std::string& exceptionText) const {
  std::string reason = console::oneLine(reasonIn(exceptionText));
  // The service's text names the engine; here there is only one.
  const std::string lead =
      "cannot start " + console::engineName(workflow_.workflowManagerId, workflow_.engineId) + ": ";
  if (reason.starts_with(lead)) reason.erase(0, lead.size());
  return "tamb-host: cannot start the engine: " + console::withLimit(std::move(reason));
}

std::optional<Session::Engine> Session::tryToStartEngine() {
  std::optional<HeldErrors> held;
  if (!source_.logsEverything) held.emplace();
  try {
    return startEngine();
  } catch (...) {
    const std::string text = tamb::CurrentExceptionText();
    // Also when there is no memory left for it.
    if (held) held->dropWhatFollowsFrom(text);
    display_->say(startFailure(text));
    return std::nullopt;
  }
}

Outcome Session::run() {
  const auto made = tryToStartEngine();
  if (!made) return Outcome::NotStarted;
  const auto& engine = std::get<0>(*made);
  if (!mayRun(engine)) return Outcome::Interrupted;
  try {
    engine->Run();
  } catch (...) {
    display_->say("tamb-host: the run failed: " + console::oneLine(reasonIn(tamb::CurrentExceptionText())));
  }
  const bool wasStopped = !mayRun(nullptr);
  // An engine in this process delivers all notifications before Run returns.
  const auto silence = source_.isLocal ? std::chrono::milliseconds(0) : channelIsLostAfter;
  const auto end = watcher_->waitForEnd(silence, wasStopped);
  if (end && !end->remark.empty()) display_->say("tamb-host: " + console::oneLine(end->remark));
  if (end) return end->outcome;
  // Not every engine reports that it was stopped.
  if (wasStopped) return Outcome::Interrupted;
  display_->say("tamb-host: the run ended, but the engine did not report how");
  return Outcome::Silent;
}

bool Session::mayRun(const std::shared_ptr<tamb::IEngineFrontEnd>& engine) {
  const base::Lock lock(mutex_);
  runningEngine_ = engine;
  return !stopped_;
}

std::shared_ptr<tamb::IEngineFrontEnd> Session::refuseFurtherRuns() {
  const base::Lock lock(mutex_);
  stopped_ = true;
  return runningEngine_;
}

void Session::abandon() {
  const auto engine = refuseFurtherRuns();
  auto* const abandonable = dynamic_cast<engines::IAbandonable*>(engine.get());
  if (abandonable == nullptr) return;
  abandonable->Abandon("");
  engine->WaitForStop(endMilliseconds);
}

void Session::stop() {
  const auto engine = refuseFurtherRuns();
  if (engine) engine->RequestStop();
}

}  // namespace qor::programs
