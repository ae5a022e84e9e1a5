#include <cstddef>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>

#include "fuzz/ReadableLine.h"
#include "programs/host/KnownManual.h"
#include "programs/host/Workflow.h"
#include "runtime/console/OneLine.h"

namespace {

using qor::fuzz::require;
using qor::programs::Workflow;

void mayRefuse(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::runtime_error& error) {
    // A reason that was cut ends in three dots.
    qor::fuzz::requireReadableLine(error.what(), qor::console::longestReason + 3);
  }
}

void use(const Workflow& workflow) {
  const auto manual = qor::programs::assumedManual(qor::programs::engineNameIn(workflow.engine));
  mayRefuse([&] {
    const auto messages = workflow.messages(manual);
    require(messages.size() >= workflow.commands.size(), "every command is sent");
    for (std::size_t i = 0; i < messages.size(); ++i) {
      require(messages[i]->GetCommandId() == i + 1, "the ids tell the order");
      require(messages[i]->GetTime().GetTimeNumber() >= 0, "no time lies before the start");
    }
  });
  mayRefuse([&] {
    require(nlohmann::json::parse(workflow.description(manual)).is_object(), "the engine is given an object");
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  mayRefuse([&] { use(qor::programs::readWorkflow(in, "job.json")); });
  return 0;
}
