#pragma once

#include <cstddef>
#include <stdexcept>

#include "runtime/processes/Cores.h"

namespace qor::bench {

/// Confines this thread, and all threads that it starts from now on, to the core of that number among the
/// allowed ones.
inline void stayOnCore(std::size_t number) {
  const processes::Cores cores = processes::usableCores();
  if (number >= cores.size()) {
    throw std::runtime_error("there are too few cores to give each process one of its own");
  }
  processes::useCores({cores[number]});
}

}  // namespace qor::bench
