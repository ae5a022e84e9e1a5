#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// Annotations for clang's thread-safety analysis, on in every build of ours with clang: code that touches a
// guarded member without its mutex does not compile. The analysis covers what no test run reaches, and
// sanitizers cannot follow libzmq.
#ifdef __clang__
#define QOR_THREAD_ANNOTATION(annotation) __attribute__((annotation))
#else
#define QOR_THREAD_ANNOTATION(annotation)
#endif

/// On a member: touched with that mutex held only, except in constructors and destructors.
#define QOR_GUARDED_BY(mutex) QOR_THREAD_ANNOTATION(guarded_by(mutex))
/// On a function or a lambda: called with that mutex held.
#define QOR_REQUIRES(mutex) QOR_THREAD_ANNOTATION(requires_capability(mutex))

namespace qor::base {

/// A std::mutex that the analysis knows.
class QOR_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  /// For the analysis alone: no other thread knows what is guarded yet, so that it is touched without a lock.
  void assumeNotShared() const QOR_THREAD_ANNOTATION(assert_capability(this)) {}

 private:
  friend class Lock;
  std::mutex mutex_;
};

/// Holds a mutex while it lives, and waits with it.
class QOR_THREAD_ANNOTATION(scoped_lockable) Lock {
 public:
  explicit Lock(Mutex& mutex) QOR_THREAD_ANNOTATION(acquire_capability(mutex)) : lock_(mutex.mutex_) {}
  // Defaulted it could not bear its annotation.
  // NOLINTNEXTLINE(modernize-use-equals-default)
  ~Lock() QOR_THREAD_ANNOTATION(release_capability()) {}
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  template <class Condition>
  void wait(std::condition_variable& changed, Condition condition) {
    changed.wait(lock_, condition);
  }
  template <class Condition>
  void waitUntil(std::condition_variable& changed, std::chrono::steady_clock::time_point deadline,
                 Condition condition) {
    changed.wait_until(lock_, deadline, condition);
  }

 private:
  std::unique_lock<std::mutex> lock_;
};

}  // namespace qor::base
