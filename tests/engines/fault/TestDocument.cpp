#include "tests/engines/fault/TestDocument.h"

#include <vector>

#include "engines/sdk/EngineDocument.h"

namespace qor::engines {

namespace {

std::vector<ManualNotification> notifications() {
  return {
      {.line = "Tick",
       .summary = "One of those that the document asks for",
       .values = {{"value", tamb::TambType::Uint64, "Counts from 0"}}},
      {.line = "Pinged",
       .summary = "It was pinged",
       .values = {{"value", tamb::TambType::Uint64, "The ping's time-out, in milliseconds"}}},
  };
}

}  // namespace

const EngineManual& testManual() {
  static const auto manual = withCommonNotifications({
      .name = "test",
      .summary = "Has no media; crashes, hangs or throws on demand, for tests of what is around engines",
      .step = "test",
      .keys = {{.name = "behaviour",
                .type = KeyType::Choice,
                .summary = "What goes wrong",
                .choices = {"run", "ignoreStop", "crash", "abort", "kill", "exit", "freeze", "stall", "throw",
                            "throwNumber"}},
               {.name = "when",
                .type = KeyType::Choice,
                .summary = "While the engine is made, in its run, or on a command Fault",
                .defaultValue = std::string("run"),
                .choices = {"construct", "run", "command"}},
               {.name = "notifications",
                .type = KeyType::Count,
                .summary = "How many notifications Tick it publishes first"},
               {.name = "prints",
                .type = KeyType::Count,
                .summary = "How many lines it prints to its standard output just before"},
               {.name = "startsThread",
                .type = KeyType::Flag,
                .summary = "Whether it starts a thread of its own while it is made"},
               {.name = "leavesProcess",
                .type = KeyType::Flag,
                .summary = "Whether it starts a copy of its process just before, which exits 10 s later"}},
      .commands = {{.name = "Fault", .summary = R"(Goes wrong, if "when" is "command")"}},
      .notifications = notifications(),
  });
  return manual;
}

TestDocument readTestDocument(const std::string& text) {
  const auto values = readDocument(text, testManual());
  return {.behaviour = values.choice<TestBehaviour>("behaviour"),
          .when = values.choice<TestMoment>("when"),
          .notifications = values.count("notifications"),
          .prints = values.count("prints"),
          .startsThread = values.flag("startsThread"),
          .leavesProcess = values.flag("leavesProcess")};
}

}  // namespace qor::engines
