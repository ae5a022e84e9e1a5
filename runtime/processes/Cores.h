#pragma once

#include <string>
#include <vector>

namespace qor::processes {

/// Processor cores, by the system's numbers for them, ascending.
using Cores = std::vector<unsigned int>;

/// Those that the calling thread may run on. Threads that it starts get the same.
Cores usableCores();

/// Has the calling thread, and those that it starts from now on, run on these only. A wake-up between two
/// threads of one core costs a fraction of one between two cores: a process whose messaging threads keep to a
/// core of their own answers sooner, as long as they need no more than that. Threads that compute are better
/// left free. Throws std::system_error when the system lets this process run on none of them.
void useCores(const Cores& cores);

/// Throws std::runtime_error, which leads with `who` and says which can be used, when one of these cannot.
void requireUsable(const Cores& cores, const std::string& who);

}  // namespace qor::processes
