#pragma once

#include <cstddef>
#include <stdexcept>

#include "runtime/processes/Cores.h"

namespace qor::bench {

/// This thread, and all that it starts from now on, runs on the core of that number among those it may use.
inline void stayOnCore(std::size_t number) {
  const processes::Cores cores = processes::usableCores();
  if (number >= cores.size()) {
    throw std::runtime_error("there are too few cores to give each process one of its own");
  }
  processes::useCores({cores[number]});
}

}  // namespace qor::bench
