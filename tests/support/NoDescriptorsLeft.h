#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <vector>

#include "runtime/base/FileDescriptor.h"

namespace qor::test {

/// UBSan needs descriptors to look at objects with virtual functions: tests without any are skipped then.
#ifdef __has_feature
inline constexpr bool sanitizerNeedsDescriptors = __has_feature(undefined_behavior_sanitizer);
#else
inline constexpr bool sanitizerNeedsDescriptors = false;
#endif

/// While it lives, this process can open no descriptor.
class NoDescriptorsLeft {
 public:
  NoDescriptorsLeft() {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    fillers_.emplace_back(::dup(STDIN_FILENO));
    rlimit few = before_;
    few.rlim_cur = static_cast<rlim_t>(fillers_.front().get()) + 16;
    if (!fillers_.front().isOpen() || ::setrlimit(RLIMIT_NOFILE, &few) != 0) {
      throw std::system_error(errno, std::generic_category(), "cannot limit descriptors");
    }
    takeFreed();
  }
  ~NoDescriptorsLeft() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  NoDescriptorsLeft(const NoDescriptorsLeft&) = delete;
  NoDescriptorsLeft& operator=(const NoDescriptorsLeft&) = delete;

  /// Takes those, too, that somebody has closed since.
  void takeFreed() {
    for (int filler = ::dup(STDIN_FILENO); filler >= 0; filler = ::dup(STDIN_FILENO)) {
      fillers_.emplace_back(filler);
    }
  }

 private:
  rlimit before_{};
  std::vector<base::FileDescriptor> fillers_;
};

}  // namespace qor::test
