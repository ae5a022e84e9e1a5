#pragma once

namespace qor::console {

/// Which log records a program shows on its standard error stream.
enum class Shown {
  /// Warnings and errors.
  Failures,
  /// Also events for operators.
  Events,
  Everything,
};

enum class Repeats {
  Written,
  /// Repeated warnings and errors are counted, and the count is written from time to time.
  Counted,
};

/// Selects the records that this process prints from now on. Each line begins as LogLine.h defines.
void showLog(Shown shown, Repeats repeats = Repeats::Written);

/// Writes the pending counts of repeated records. Any thread.
void flushLog();

}  // namespace qor::console
