#include "runtime/console/Limits.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <string_view>

namespace qor::console {

namespace {

/// The C library's text for EAGAIN, the error when a thread or a process cannot be started.
constexpr std::string_view noThread = "Resource temporarily unavailable";
constexpr std::string_view noMemory = "std::bad_alloc";
constexpr rlim_t mebibyte = rlim_t{1} << 20U;

/// None if unlimited.
std::optional<rlim_t> limitOf(__rlimit_resource resource) {
  rlimit limit{};
  if (::getrlimit(resource, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return std::nullopt;
  return limit.rlim_cur;
}

std::string memoryLimit() {
  const auto limit = limitOf(RLIMIT_AS);
  return limit ? fmt::format(" (this process may use {} MiB of address space: ulimit -v)", *limit / mebibyte)
               : "";
}

std::string descriptorLimit() {
  const auto limit = limitOf(RLIMIT_NOFILE);
  return limit ? fmt::format(" (this process may open {} files: ulimit -n)", *limit) : "";
}

std::string processLimit() {
  const auto limit = limitOf(RLIMIT_NPROC);
  return limit ? fmt::format(" (this user may have {} processes and threads: ulimit -u)", *limit) : "";
}

}  // namespace

std::string withLimit(std::string failure) {
  const auto speaksOf = [&failure](std::initializer_list<std::string_view> texts) {
    return std::ranges::any_of(
        texts, [&](std::string_view text) { return failure.find(text) != std::string::npos; });
  };
  if (speaksOf({"ulimit -"})) return failure;
  if (failure == noThread) failure = "cannot start a thread: " + failure;
  if (failure == noMemory) failure = "out of memory";
  if (speaksOf({"Too many open files"})) return failure + descriptorLimit();
  if (speaksOf(
          {"out of memory", "OUT OF MEMORY", "Cannot allocate memory", "failed to map segment", noMemory}))
    return failure + memoryLimit();
  if (speaksOf({noThread})) {
    const std::string memory = memoryLimit();
    return failure + (memory.empty() ? processLimit() : memory);
  }
  return failure;
}

}  // namespace qor::console
