#include <cstdlib>

namespace {

/// Ends any process that loads this library, as a faulty static initialiser does.
__attribute__((constructor)) void die() { std::abort(); }

}  // namespace
