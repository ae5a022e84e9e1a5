// A plug-in that cannot do its work.

#include <stdexcept>

extern "C" void RegisterAll(const char* /*name*/) { throw std::runtime_error("no licence"); }
