#pragma once

#include <cstdio>
#include <cstdlib>

namespace qor::fuzz {

/// Aborts the process, so that the fuzzer keeps the input.
inline void require(bool condition, const char* expectation) {
  if (condition) return;
  std::fprintf(stderr, "not so: %s\n", expectation);
  std::abort();
}

}  // namespace qor::fuzz
