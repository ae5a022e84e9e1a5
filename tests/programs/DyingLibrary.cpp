#include <cstdlib>

namespace {

/// Kills any process that loads this library, like a faulty static initialiser.
__attribute__((constructor)) void die() { std::abort(); }

}  // namespace
