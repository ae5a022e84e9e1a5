// A plug-in whose registration fails.

#include <stdexcept>

extern "C" void RegisterAll(const char* /*name*/) { throw std::runtime_error("no licence"); }
