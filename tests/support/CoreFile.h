#pragma once

#include <sys/resource.h>

namespace qor::test {

/// Suppresses the core file of a process that is meant to be killed by a signal.
inline void leaveNoCoreFile() {
  const rlimit none{.rlim_cur = 0, .rlim_max = 0};
  ::setrlimit(RLIMIT_CORE, &none);
}

}  // namespace qor::test
