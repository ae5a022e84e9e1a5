#pragma once

namespace qor::console {

/// Which log records a program shows on its standard error stream.
enum class Shown {
  /// Warnings and errors.
  Failures,
  /// What an operator wants to know as well.
  Events,
  Everything,
};

enum class Repeats {
  Written,
  /// A warning or an error that repeats an earlier one is counted, and the count written now and then.
  Counted,
};

/// From now on, in the whole process. Each line of a record begins as LogLine.h has it.
void showLog(Shown shown, Repeats repeats = Repeats::Written);

/// Writes the counts of repeated records that have not been written yet. Any thread.
void flushLog();

}  // namespace qor::console
