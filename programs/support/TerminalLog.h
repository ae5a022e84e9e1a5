#pragma once

namespace qor::programs {

/// Which log records a program shows on its standard error stream.
enum class Shown {
  /// Warnings and errors.
  Failures,
  /// What an operator wants to know as well.
  Events,
  Everything,
};

/// From now on, in the whole process.
void showLog(Shown shown);

}  // namespace qor::programs
