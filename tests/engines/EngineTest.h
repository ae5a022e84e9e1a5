#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engines/sdk/LocalEngine.h"
#include "tamb/INotificationHub.h"
#include "tests/engines/ReadBack.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/TemporaryDirectory.h"
#include "tools/clip/Clip.h"

namespace qor::engines::test {

/// A text as a JSON string.
inline std::string quoted(const std::string& text) { return '"' + text + '"'; }

using Notification = std::shared_ptr<const tamb::INotificationMessage>;

/// Records the notifications of an engine. Any thread.
class Notifications : public tamb::INotificationCallback {
 public:
  void OnNotification(Notification notification) override;

  std::vector<Notification> all() const;
  std::vector<Notification> ofLine(const std::string& line) const;
  /// The only notification of that line; null unless there is exactly one.
  Notification only(const std::string& line) const;
  /// The answer to a command; null if there is none.
  Notification answerTo(unsigned int commandId) const;
  std::vector<std::string> lines() const;
  /// Waits, at most 20 s, until there are that many of that line.
  bool waitFor(const std::string& line, std::size_t count = 1) const;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<Notification> notifications_;
};

/// A local engine with a hub, and a folder for its files that the destructor removes.
class EngineTest : public testing::Test {
 protected:
  ~EngineTest() override;

  /// A path in the test's folder, which is created on first use: programs that die leave none behind.
  std::string path(const std::string& name) const;
  /// The files in the test's folder.
  std::vector<std::string> fileNames() const;
  /// A clip of two seconds that all tests share: testsrc2 at 64x48 and 25/1, a sine of 1 kHz at 48 kHz in
  /// stereo, lossless.
  static const std::string& sharedClip();

  /// Creates the engine that the document names, media or test.
  void make(const std::string& document);
  /// make() and Run.
  void run(const std::string& document);
  /// The text of a document with the given keys and their values in JSON.
  static std::string media(const std::vector<std::pair<std::string, std::string>>& keys);

  /// Pushes a command that is due at that time, and returns its id.
  unsigned int command(const std::string& name, const tamb::MediaTime& time,
                       const std::vector<std::pair<std::string, std::string>>& arguments = {});
  unsigned int filterCommand(const tamb::MediaTime& time, const std::string& target, const std::string& name,
                             const std::string& argument);
  static tamb::MediaTime at(std::int64_t number, unsigned int numerator, unsigned int denominator = 1) {
    return {tamb::EditRate(numerator, denominator), number, nullptr};
  }
  static tamb::MediaTime now() { return {}; }

  std::string reasonOf(const Notification& notification) const;
  /// The reason of the run's failure; another text if it has not failed.
  std::string failure() const;

  tamb::IEngineFrontEnd& engine() { return *local_.engine; }

  qor::test::CapturedLog log_;
  std::shared_ptr<Notifications> heard_ = std::make_shared<Notifications>();
  LocalEngine local_;
  std::string step_ = "media";

 private:
  mutable std::optional<qor::test::TemporaryDirectory> folder_;
  std::shared_ptr<tamb::INotificationHubFrontEnd> hub_;
  unsigned int lastCommandId_ = 100;
};

}  // namespace qor::engines::test
