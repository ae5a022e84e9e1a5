#include "runtime/tamb/CommandProcessor.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "runtime/base/Mutex.h"
#include "runtime/tamb/BoundedLog.h"
#include "runtime/tamb/CommandTime.h"
#include "runtime/tamb/CurrentException.h"
#include "runtime/tamb/WriteLogRecord.h"
#include "tamb/TAMBRuntimeError.h"

namespace tamb {

namespace {

using Command = std::shared_ptr<const ICommandMessage>;

/// In characters; texts of commands may fill a whole message.
constexpr std::size_t longestQuotation = 200;

std::string quote(std::string_view text) {
  return text.size() <= longestQuotation ? fmt::format("{:?}", text)
                                         : fmt::format("{:?}...", text.substr(0, longestQuotation));
}

std::string describe(const ICommandMessage& command) {
  return fmt::format("command {} (id {}, step {}, engine {})", quote(command.GetCommandName()),
                     command.GetCommandId(), quote(command.GetStepId()), command.GetEngineId());
}

void requireTime(double time) {
  if (std::isnan(time)) {
    throw TAMBRuntimeError("Command processor: the time given is not a number");
  }
}

/// The controls of one kind by name. Not locked: the command processor's lock guards it.
template <typename Control>
class Controls {
 public:
  /// `kind` names such a control in error texts.
  explicit Controls(std::string kind) : kind_(std::move(kind)) {}

  void Add(std::string name, std::shared_ptr<Control> control) {
    if (!control) {
      throw TAMBRuntimeError(fmt::format("Command processor: the {} {:?} is empty", kind_, name));
    }
    const auto [position, added] = controls_.try_emplace(std::move(name), std::move(control));
    if (!added) {
      throw TAMBRuntimeError(
          fmt::format("Command processor: a {} {:?} has already been added", kind_, position->first));
    }
  }

  /// Empty if there is none.
  std::shared_ptr<Control> Find(const std::string& name) const {
    const auto position = controls_.find(name);
    return position == controls_.end() ? nullptr : position->second;
  }

  std::shared_ptr<Control> Get(const std::string& name) const {
    auto control = Find(name);
    if (!control) {
      throw TAMBRuntimeError(
          fmt::format("Command processor: unknown {} {:?}; {}", kind_, name,
                      controls_.empty() ? "none has been added" : "expected one of " + Names()));
    }
    return control;
  }

  bool IsEmpty() const { return controls_.empty(); }
  std::string Names() const {
    std::vector<std::string> names;
    for (const auto& [name, control] : controls_) {
      names.push_back(fmt::format("{:?}", name));
    }
    return fmt::format("{}", fmt::join(names, ", "));
  }

 private:
  const std::string kind_;
  std::map<std::string, std::shared_ptr<Control>> controls_;
};

class CommandProcessor : public ICommandProcessorFrontEnd,
                         public ICommandProcessorBackEnd,
                         public ICommandRefusals,
                         public std::enable_shared_from_this<CommandProcessor> {
 public:
  CommandProcessor() = default;
  ~CommandProcessor() override;
  CommandProcessor(const CommandProcessor&) = delete;
  CommandProcessor& operator=(const CommandProcessor&) = delete;

  std::shared_ptr<IBasicControl> GetControl(std::string name) override;
  std::shared_ptr<IBasicStatusControl> GetStatusControl(std::string name) override;
  void PushCommands(std::vector<Command> commands) override;
  void PushCommand(Command command) override;
  void SetWorkflowManagerId(std::string id) override;
  void SetEngineId(unsigned int id) override;
  std::string GetWorkflowManagerId() const override;
  unsigned int GetEngineId() const override;

  void AddControl(std::string name, std::shared_ptr<IBasicControl> control) override;
  void AddStatusControl(std::string name, std::shared_ptr<IBasicStatusControl> control) override;
  void ExecuteAllCommandsScheduledAt(double time) override;
  void ExecuteAllCommands() override;
  void EraseAllCommandsInStack() override;
  void EraseAllCommandsInStackBefore(double time) override;
  void DefineEngine(IEngineFrontEnd* engine) override;

  void SetRefusalHandler(Handler handler) override;
  void RefuseAll(std::string reason) override;

 private:
  /// The position of a command among the waiting ones.
  struct Place {
    CommandTime time;
    /// The number of the push.
    std::uint64_t number;

    friend bool operator<(const Place& left, const Place& right) {
      return std::tie(left.time, left.number) < std::tie(right.time, right.number);
    }
  };

  /// One running execution.
  struct Execution {
    double until;
    /// The number of the first command that was pushed too late for it.
    std::uint64_t endNumber;
    /// The last position visited, so that no command is visited twice.
    std::optional<Place> position;
  };

  void ExecuteUntil(double time);
  /// Removes and returns the next command of the execution; empty if none is left.
  Command TakeNext(Execution& execution);
  /// Logs and refuses a command that cannot be executed.
  void Execute(const ICommandMessage& command);
  void RefuseUnknownStep(const ICommandMessage& command);
  /// False if no handler answers refused commands.
  bool Refuse(const ICommandMessage& command, const std::string& reason);
  void RefuseLate(const ICommandMessage& command, const std::string& reason);

  mutable qor::base::Mutex mutex_;
  std::map<Place, Command> commands_ QOR_GUARDED_BY(mutex_);
  std::uint64_t nextNumber_ QOR_GUARDED_BY(mutex_) = 0;
  Controls<IBasicControl> controls_ QOR_GUARDED_BY(mutex_){"control"};
  Controls<IBasicStatusControl> statusControls_ QOR_GUARDED_BY(mutex_){"status control"};
  IEngineFrontEnd* engine_ QOR_GUARDED_BY(mutex_) = nullptr;
  std::string workflowManagerId_ QOR_GUARDED_BY(mutex_);
  unsigned int engineId_ QOR_GUARDED_BY(mutex_) = 0;
  Handler refusalHandler_ QOR_GUARDED_BY(mutex_);
  /// The reason for refusing all commands; empty until RefuseAll.
  std::optional<std::string> refusal_ QOR_GUARDED_BY(mutex_);
  BoundedLog untimed_{LogLevel::Warning, "Command processor: commands without a time, due at once"};
  BoundedLog dropped_{LogLevel::Warning, "Command processor: commands for a step without a control"};
  BoundedLog failed_{LogLevel::Error, "Command processor: commands that failed"};
  BoundedLog refused_{LogLevel::Info, "Command processor: commands that came too late"};
  BoundedLog unanswered_{LogLevel::Error, "Command processor: commands that got no answer"};
};

CommandProcessor::~CommandProcessor() {
  if (!commands_.empty()) {
    WriteLogRecord(LogLevel::Info,
                   fmt::format("Command processor of engine {}: commands that were never executed: {}",
                               engineId_, commands_.size()));
  }
}

std::shared_ptr<IBasicControl> CommandProcessor::GetControl(std::string name) {
  const qor::base::Lock lock(mutex_);
  return controls_.Get(name);
}

std::shared_ptr<IBasicStatusControl> CommandProcessor::GetStatusControl(std::string name) {
  const qor::base::Lock lock(mutex_);
  return statusControls_.Get(name);
}

void CommandProcessor::PushCommands(std::vector<Command> commands) {
  if (std::any_of(commands.begin(), commands.end(), [](const Command& each) { return !each; })) {
    throw TAMBRuntimeError("Command processor: cannot push an empty command");
  }
  std::vector<std::pair<CommandTime, Command>> timed;
  timed.reserve(commands.size());
  for (auto& command : commands) {
    const CommandTime time(command->GetTime());
    if (!time.HasPlace()) {
      const auto& rate = command->GetTime().GetEditRate();
      untimed_.Write([&] {
        return fmt::format(
            "Command processor of engine {}: {} is due at once: its edit rate {}/{} is not a valid rate",
            GetEngineId(), describe(*command), rate.GetNumerator(), rate.GetDenominator());
      });
    }
    timed.emplace_back(time, std::move(command));
  }
  std::string reason;
  {
    const qor::base::Lock lock(mutex_);
    if (!refusal_) {
      for (auto& [time, command] : timed) {
        commands_.emplace(Place{time, nextNumber_++}, std::move(command));
      }
      return;
    }
    reason = *refusal_;
  }
  for (const auto& [time, command] : timed) {
    RefuseLate(*command, reason);
  }
}

void CommandProcessor::PushCommand(Command command) { PushCommands({std::move(command)}); }

void CommandProcessor::SetWorkflowManagerId(std::string id) {
  const qor::base::Lock lock(mutex_);
  workflowManagerId_ = std::move(id);
}

void CommandProcessor::SetEngineId(unsigned int id) {
  const qor::base::Lock lock(mutex_);
  engineId_ = id;
}

std::string CommandProcessor::GetWorkflowManagerId() const {
  const qor::base::Lock lock(mutex_);
  return workflowManagerId_;
}

unsigned int CommandProcessor::GetEngineId() const {
  const qor::base::Lock lock(mutex_);
  return engineId_;
}

void CommandProcessor::AddControl(std::string name, std::shared_ptr<IBasicControl> control) {
  const qor::base::Lock lock(mutex_);
  controls_.Add(std::move(name), std::move(control));
}

void CommandProcessor::AddStatusControl(std::string name, std::shared_ptr<IBasicStatusControl> control) {
  const qor::base::Lock lock(mutex_);
  statusControls_.Add(std::move(name), std::move(control));
}

void CommandProcessor::ExecuteAllCommandsScheduledAt(double time) {
  requireTime(time);
  ExecuteUntil(time);
}

void CommandProcessor::ExecuteAllCommands() { ExecuteUntil(std::numeric_limits<double>::infinity()); }

void CommandProcessor::EraseAllCommandsInStack() {
  std::map<Place, Command> erased;  // Commands may be foreign classes: destroyed without the lock.
  const qor::base::Lock lock(mutex_);
  erased.swap(commands_);
}

void CommandProcessor::EraseAllCommandsInStackBefore(double time) {
  requireTime(time);
  std::map<Place, Command> erased;
  const qor::base::Lock lock(mutex_);
  while (!commands_.empty() && commands_.begin()->first.time.Seconds() < time) {
    erased.insert(commands_.extract(commands_.begin()));
  }
}

void CommandProcessor::DefineEngine(IEngineFrontEnd* engine) {
  const qor::base::Lock lock(mutex_);
  engine_ = engine;
}

void CommandProcessor::ExecuteUntil(double time) {
  const auto self = shared_from_this();  // A control may release the command processor.
  Execution execution{time, 0, std::nullopt};
  {
    const qor::base::Lock lock(mutex_);
    execution.endNumber = nextNumber_;
  }
  while (const auto command = TakeNext(execution)) {
    Execute(*command);
  }
}

Command CommandProcessor::TakeNext(Execution& execution) {
  const qor::base::Lock lock(mutex_);
  auto next = execution.position ? commands_.upper_bound(*execution.position) : commands_.begin();
  for (; next != commands_.end() && next->first.time.Seconds() <= execution.until; ++next) {
    execution.position = next->first;
    if (next->first.number < execution.endNumber) {
      return std::move(commands_.extract(next).mapped());
    }
  }
  return nullptr;
}

void CommandProcessor::Execute(const ICommandMessage& command) {
  std::string failure;
  try {
    std::shared_ptr<IBasicControl> control;
    {
      const qor::base::Lock lock(mutex_);
      control = controls_.Find(command.GetStepId());
    }
    return control ? control->ExecuteCommand(command) : RefuseUnknownStep(command);
  } catch (...) {
    failure = CurrentExceptionText();
  }
  failed_.Write([&] { return fmt::format("Command processor: {} failed: {}", describe(command), failure); });
  Refuse(command, failure);
}

void CommandProcessor::RefuseUnknownStep(const ICommandMessage& command) {
  IEngineFrontEnd* engine = nullptr;
  std::string reason = fmt::format("unknown step {}", quote(command.GetStepId()));
  {
    const qor::base::Lock lock(mutex_);
    engine = engine_;
    reason += controls_.IsEmpty() ? "; the engine has no steps"
                                  : fmt::format("; expected one of {}", controls_.Names());
  }
  dropped_.Write([&] {
    return fmt::format(
        "Command processor of engine {}: {} is dropped: no control has been added for its step",
        engine == nullptr ? GetEngineId() : engine->GetEngineId(), describe(command));
  });
  Refuse(command, reason);
}

bool CommandProcessor::Refuse(const ICommandMessage& command, const std::string& reason) {
  Handler handler;
  {
    const qor::base::Lock lock(mutex_);
    handler = refusalHandler_;
  }
  if (!handler) {
    return false;
  }
  try {
    handler(command, reason);
  } catch (...) {
    const auto failure = CurrentExceptionText();
    unanswered_.Write(
        [&] { return fmt::format("Command processor: {} got no answer: {}", describe(command), failure); });
  }
  return true;
}

void CommandProcessor::RefuseLate(const ICommandMessage& command, const std::string& reason) {
  if (!Refuse(command, reason)) {
    refused_.Write(
        [&] { return fmt::format("Command processor: {} is refused: {}", describe(command), reason); });
  }
}

void CommandProcessor::SetRefusalHandler(Handler handler) {
  const qor::base::Lock lock(mutex_);
  refusalHandler_.swap(handler);
}

void CommandProcessor::RefuseAll(std::string reason) {
  const auto self = shared_from_this();  // The handler may release the command processor.
  std::map<Place, Command> waiting;
  {
    const qor::base::Lock lock(mutex_);
    refusal_ = reason;
    waiting.swap(commands_);
  }
  for (const auto& [place, command] : waiting) {
    RefuseLate(*command, reason);
  }
}

}  // namespace

std::pair<std::shared_ptr<ICommandProcessorFrontEnd>, std::shared_ptr<ICommandProcessorBackEnd>>
CreateCommandProcessor() {
  const auto processor = std::make_shared<CommandProcessor>();
  return {processor, processor};
}

}  // namespace tamb
