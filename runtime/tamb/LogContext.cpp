#include "tamb/LogContext.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "runtime/base/RandomUuid.h"

namespace tamb {

namespace {

/// Outlives `context`, whose destructor sets it: a thread's last log lines may come from objects destroyed
/// after its thread-local ones, in the main thread even from statics.
thread_local bool contextGone = false;

struct Context {
  Context() = default;
  ~Context() { contextGone = true; }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  std::string text;
};

thread_local Context context;

}  // namespace

void DefineContextEngine_deprecated(
    const std::string& name, unsigned int engineId,
    std::shared_ptr<const IMediaClock> /*clock*/,  // NOLINT(performance-unnecessary-value-param)
    const std::map<std::string, std::shared_ptr<IInputEndpoint>>& /*inputEndpoints*/,
    const std::map<std::string, std::shared_ptr<IOutputEndpoint>>& /*outputEndpoints*/,
    const std::map<std::string, std::shared_ptr<IMemoryBlockAllocator>>& /*allocators*/,
    const std::map<std::string, std::shared_ptr<ILogger>>& /*loggers*/,
    const std::map<std::string, void*>& /*benchmarkers*/) {
  if (!contextGone) {
    context.text = fmt::format("{} (engine {})", name, engineId);
  }
}

std::string GetCurrentContextString() { return contextGone ? std::string() : context.text; }

std::string GetThreadId() { return fmt::format_int(::gettid()).str(); }

std::string GetCurrentTimeString() {
  using namespace std::chrono;
  const auto now = floor<microseconds>(system_clock::now());
  const auto second = floor<seconds>(now);
  return fmt::format("{:%FT%T}.{:06}Z", fmt::gmtime(system_clock::to_time_t(second)), (now - second).count());
}

std::string GetUUIDString() { return qor::base::randomUuid(); }

std::string ToString(int number) { return fmt::format_int(number).str(); }

}  // namespace tamb
