#pragma once

#include <string>
#include <vector>

namespace qor::processes {

/// Processor cores by the system's numbers, ascending.
using Cores = std::vector<unsigned int>;

/// The cores that the calling thread may run on. Threads that it starts inherit them.
Cores usableCores();

/// Pins the calling thread, and the threads that it starts from now on, to these cores. A wake-up within one
/// core costs a fraction of one between two cores, so messaging threads that share a core answer sooner, as
/// long as one core is enough for them. Do not pin threads that compute. Throws std::system_error when this
/// process may run on none of the cores.
void useCores(const Cores& cores);

/// Throws std::runtime_error, which begins with `who` and lists the usable cores, when one of these is
/// unusable.
void requireUsable(const Cores& cores, const std::string& who);

}  // namespace qor::processes
