#include "programs/host/Session.h"

#include <chrono>
#include <exception>
#include <stdexcept>
#include <utility>

#include "engines/LocalEngine.h"
#include "programs/support/OneLine.h"
#include "runtime/tamb/EngineDescription.h"
#include "runtime/tamb/FactoryRegistry.h"
#include "runtime/tamb/PluginLoader.h"

namespace qor::programs {

namespace {

/// The end of a run and its last notification travel by different channels.
constexpr std::chrono::seconds timeForLastNotification{3};

}  // namespace

/// Notices how a run ends, and passes everything on to the display.
class Session::Watcher : public tamb::INotificationCallback {
 public:
  explicit Watcher(std::shared_ptr<Display> display) : display_(std::move(display)) {}

  void OnNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override {
    display_->OnNotification(notification);
    const auto outcome = outcomeIn(*notification);
    if (!outcome) return;
    const std::lock_guard lock(mutex_);
    if (!outcome_) outcome_ = outcome;
    ended_.notify_all();
  }

  std::optional<Outcome> waitForOutcome() {
    std::unique_lock lock(mutex_);
    ended_.wait_for(lock, timeForLastNotification, [this] { return outcome_.has_value(); });
    return outcome_;
  }

 private:
  static std::optional<Outcome> outcomeIn(const tamb::INotificationMessage& notification) {
    const std::string& line = notification.GetNotificationLine();
    if (line == "Failed") return Outcome::Failed;
    if (line == "EngineDied") return Outcome::EngineDied;
    if (line != "Finished") return std::nullopt;
    const auto values = notification.GetNotificationObject();
    const bool wasStopped = values && values->HasKey("stopped") && values->GetBool("stopped");
    return wasStopped ? Outcome::Interrupted : Outcome::Finished;
  }

  const std::shared_ptr<Display> display_;
  std::mutex mutex_;
  std::condition_variable ended_;
  std::optional<Outcome> outcome_;
};

Session::Session(Workflow workflow, EngineSource source, std::shared_ptr<Display> display)
    : workflow_(std::move(workflow)),
      messages_(workflow_.messages()),
      description_(std::make_shared<tamb::EngineDescription>(workflow_.workflowManagerId,
                                                             workflow_.description(), workflow_.engineId)),
      source_(std::move(source)),
      display_(std::move(display)),
      watcher_(std::make_shared<Watcher>(display_)) {}

Session::~Session() = default;

Session::Engine Session::localEngine() const {
  const auto local =
      engines::makeLocalEngine(*description_, source_.withTestEngine ? engines::OfferedEngines::WithTestEngine
                                                                     : engines::OfferedEngines::Shipped);
  auto [hubFrontEnd, hubBackEnd] = tamb::CreateNotificationHub();
  local.engine->SetNotificationHubBackEnd(hubBackEnd);
  return {local.engine, local.commandFrontEnd, hubFrontEnd};
}

Session::Engine Session::remoteEngine() const {
  tamb::LoadPlugin(source_.plugin);
  const auto factory = tamb::FindFactory(tamb::ElementFactoryType::Engine, "RemoteEngine");
  if (!factory) throw std::runtime_error(source_.plugin.string() + " registers no remote engine");
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
  // A remote engine is submitted with this, and connected to.
  if (!source_.isLocal) engine->AddEngineDescription(description_);
  // One at a time: a batch has a limit, and the last one is what lets the engine begin.
  for (const auto& command : messages_) commands->PushCommand(command);
  return made;
}

Outcome Session::run() {
  Engine made;
  try {
    made = startEngine();
  } catch (const std::runtime_error& error) {
    display_->say("tamb-host: cannot start the engine: " + oneLine(error.what()));
    return Outcome::NotStarted;
  }
  const auto& engine = std::get<0>(made);
  if (!mayRun(engine)) return Outcome::Interrupted;
  try {
    engine->Run();
  } catch (const std::runtime_error& error) {
    display_->say("tamb-host: the run failed: " + oneLine(error.what()));
  }
  const bool wasStopped = !mayRun(nullptr);
  const auto outcome = watcher_->waitForOutcome();
  // Not every engine tells that it was stopped.
  if (!outcome && wasStopped) return Outcome::Interrupted;
  if (!outcome) display_->say("tamb-host: the engine's run ended, and the engine did not say how");
  return outcome.value_or(Outcome::Silent);
}

bool Session::mayRun(const std::shared_ptr<tamb::IEngineFrontEnd>& engine) {
  const std::lock_guard lock(mutex_);
  runningEngine_ = engine;
  return !stopped_;
}

void Session::stop() {
  std::shared_ptr<tamb::IEngineFrontEnd> engine;
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    engine = runningEngine_;
  }
  if (engine) engine->RequestStop();
}

}  // namespace qor::programs
