#pragma once

#include <memory>
#include <string>

namespace qor::programs {

/// While it lives, the errors that this thread logs are held back, and written when it goes: an operation
/// that fails logs its reason and throws it as well, and may log what follows from it, before anybody has
/// reported the reason. Records of other threads, and less than errors, are written at once. Used on one
/// thread; there is at most one in a process.
class HeldErrors {
 public:
  HeldErrors();
  /// Writes what has not been dropped.
  ~HeldErrors();
  HeldErrors(const HeldErrors&) = delete;
  HeldErrors& operator=(const HeldErrors&) = delete;

  /// Drops what adds nothing to an exception that is reported: the record of its very text, and that an
  /// engine which never was connected could not be told of its end.
  void dropWhatFollowsFrom(const std::string& exceptionText);

 private:
  class Writer;
  const std::shared_ptr<Writer> writer_;
};

}  // namespace qor::programs
