#include "tests/engines/EngineTest.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <stdexcept>

#include "engines/media/MediaEngine.h"
#include "engines/sdk/EngineDocument.h"
#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/EngineDescription.h"
#include "tests/engines/fault/TestEngine.h"

namespace qor::engines::test {

void Notifications::OnNotification(Notification notification) {
  const std::lock_guard lock(mutex_);
  notifications_.push_back(std::move(notification));
  changed_.notify_all();
}

std::vector<Notification> Notifications::all() const {
  const std::lock_guard lock(mutex_);
  return notifications_;
}

std::vector<Notification> Notifications::ofLine(const std::string& line) const {
  const auto notifications = all();
  std::vector<Notification> found;
  std::copy_if(notifications.begin(), notifications.end(), std::back_inserter(found),
               [&](const auto& each) { return each->GetNotificationLine() == line; });
  return found;
}

Notification Notifications::only(const std::string& line) const {
  const auto found = ofLine(line);
  return found.size() == 1 ? found.front() : nullptr;
}

Notification Notifications::answerTo(unsigned int commandId) const {
  const auto notifications = all();
  const auto found = std::find_if(notifications.begin(), notifications.end(),
                                  [&](const auto& each) { return each->GetCommandId() == commandId; });
  return found == notifications.end() ? nullptr : *found;
}

std::vector<std::string> Notifications::lines() const {
  std::vector<std::string> lines;
  for (const auto& each : all()) lines.push_back(each->GetNotificationLine());
  return lines;
}

bool Notifications::waitFor(const std::string& line, std::size_t count) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, std::chrono::seconds(20), [&] {
    return static_cast<std::size_t>(
               std::count_if(notifications_.begin(), notifications_.end(),
                             [&](const auto& each) { return each->GetNotificationLine() == line; })) >= count;
  });
}

EngineTest::~EngineTest() = default;

std::string EngineTest::path(const std::string& name) const {
  if (!folder_) folder_.emplace();
  return (folder_->path() / name).string();
}

std::vector<std::string> EngineTest::fileNames() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path(""))) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

const std::string& EngineTest::sharedClip() {
  static const qor::test::TemporaryDirectory folder;
  static const std::string path = [] {
    auto name = (folder.path() / "clip.mkv").string();
    qor::examples::writeClip(
        {.video = "testsrc2=size=64x48:rate=25:duration=2,format=yuv420p",
         .audio = "sine=frequency=1000:sample_rate=48000:duration=2,aformat=channel_layouts=stereo",
         .metadataTitle = "A clip"},
        name);
    return name;
  }();
  return path;
}

void EngineTest::make(const std::string& document) {
  const tamb::EngineDescription description("manager", document, 7);
  local_ = engineNamedIn(document, {"media", "test"}) == "media"
               ? makeLocalEngine(description, EngineFactory<MediaEngine>())
               : makeLocalEngine(description, EngineFactory<TestEngine>());
  std::shared_ptr<tamb::INotificationHubBackEnd> backEnd;
  std::tie(hub_, backEnd) = tamb::CreateNotificationHub();
  hub_->Subscribe(heard_);
  local_.engine->SetNotificationHubBackEnd(backEnd);
}

void EngineTest::run(const std::string& document) {
  make(document);
  engine().Run();
}

std::string EngineTest::media(const std::vector<std::pair<std::string, std::string>>& keys) {
  std::string text = R"({"engine": "media")";
  for (const auto& [key, value] : keys) text += fmt::format(", {:?}: {}", key, value);
  return text + "}";
}

unsigned int EngineTest::command(const std::string& name, const tamb::MediaTime& time,
                                 const std::vector<std::pair<std::string, std::string>>& arguments) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  for (const auto& [key, value] : arguments) prototype->AddUTF8StringKey(key, value, "");
  const auto id = ++lastCommandId_;
  local_.commandFrontEnd->PushCommand(std::make_shared<tamb::CommandMessage>(tamb::CommandFields{
      .commandArgs = tamb::CreateParametersCollectionInstance(prototype),
      .time = time,
      .commandName = name,
      .commandId = id,
      .workflowManagerId = "manager",
      .engineId = 7,
      .stepId = step_,
  }));
  return id;
}

unsigned int EngineTest::filterCommand(const tamb::MediaTime& time, const std::string& target,
                                       const std::string& name, const std::string& argument) {
  return command("FilterCommand", time, {{"target", target}, {"command", name}, {"argument", argument}});
}

std::string EngineTest::reasonOf(const Notification& notification) const {
  return notification && notification->GetNotificationObject() &&
                 notification->GetNotificationObject()->HasKey("reason")
             ? notification->GetNotificationObject()->GetUTF8String("reason")
             : "(no reason)";
}

std::string EngineTest::failure() const {
  const auto failed = heard_->only("Failed");
  return failed ? reasonOf(failed) : fmt::format("no failure, but {}", fmt::join(heard_->lines(), ", "));
}

}  // namespace qor::engines::test
