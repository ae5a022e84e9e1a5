#include "runtime/processes/Cores.h"

#include <fmt/format.h>
#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace qor::processes {

Cores usableCores() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (::sched_getaffinity(0, sizeof set, &set) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot list the usable cores");
  }
  Cores cores;
  for (unsigned int core = 0; core < CPU_SETSIZE; ++core) {
    if (CPU_ISSET(core, &set)) cores.push_back(core);
  }
  return cores;
}

void useCores(const Cores& cores) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (const unsigned int core : cores) {
    if (core < CPU_SETSIZE) CPU_SET(core, &set);
  }
  if (::sched_setaffinity(0, sizeof set, &set) != 0) {
    throw std::system_error(errno, std::generic_category(),
                            fmt::format("cannot pin the thread to the cores {}", fmt::join(cores, ", ")));
  }
}

void requireUsable(const Cores& cores, const std::string& who) {
  if (cores.empty()) return;
  const Cores usable = usableCores();
  for (const unsigned int core : cores) {
    if (std::ranges::find(usable, core) != usable.end()) continue;
    throw std::runtime_error(
        fmt::format("{}: core {} cannot be used: expected one of {}", who, core, fmt::join(usable, ", ")));
  }
}

}  // namespace qor::processes
