// Linked into the programs whose coverage is measured. A process that exits at once, or by a signal that it
// sends to itself, would lose its counts: this writes them before. Wrapped by the linker, for C++ and C
// alike.

#include <sys/types.h>
#include <unistd.h>

extern "C" {

void __gcov_dump();                          // NOLINT(bugprone-reserved-identifier): libgcov's name
int __real_kill(pid_t process, int number);  // NOLINT(bugprone-reserved-identifier): the linker's names
[[noreturn]] void __real__Exit(int code);    // NOLINT(bugprone-reserved-identifier)

int __wrap_kill(pid_t process, int number) {  // NOLINT(bugprone-reserved-identifier)
  if (number != 0 && process == ::getpid()) __gcov_dump();
  return __real_kill(process, number);
}

[[noreturn]] void __wrap__Exit(int code) {  // NOLINT(bugprone-reserved-identifier)
  __gcov_dump();
  __real__Exit(code);
}

}  // extern "C"
