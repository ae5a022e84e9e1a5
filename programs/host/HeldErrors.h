#pragma once

#include <memory>
#include <string>

namespace qor::programs {

/// Holds back the errors that this thread logs, and writes them in its destructor. A failing operation both
/// logs and throws its reason, and may log consequences before the reason is reported. Records of other
/// threads and of lower levels are written at once. Used on one thread; at most one exists in a process.
class HeldErrors {
 public:
  HeldErrors();
  /// Writes the records that were not dropped.
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
