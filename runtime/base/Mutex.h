#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// Annotations for clang's thread-safety analysis, which is enabled in all our clang builds: code that
// accesses a guarded member without its mutex does not compile. The analysis covers code that no test runs,
// and sanitizers cannot follow libzmq.
#ifdef __clang__
#define QOR_THREAD_ANNOTATION(annotation) __attribute__((annotation))
#else
#define QOR_THREAD_ANNOTATION(annotation)
#endif

/// For a member: accessed only with that mutex held, except in constructors and destructors.
#define QOR_GUARDED_BY(mutex) QOR_THREAD_ANNOTATION(guarded_by(mutex))
/// For a function or a lambda: called with that mutex held.
#define QOR_REQUIRES(mutex) QOR_THREAD_ANNOTATION(requires_capability(mutex))

namespace qor::base {

/// A std::mutex with annotations.
class QOR_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  /// For the analysis only: until other threads know the guarded members, they are accessed without a lock.
  void assumeNotShared() const QOR_THREAD_ANNOTATION(assert_capability(this)) {}

 private:
  friend class Lock;
  std::mutex mutex_;
};

/// Holds a mutex during its lifetime, and waits with it.
class QOR_THREAD_ANNOTATION(scoped_lockable) Lock {
 public:
  explicit Lock(Mutex& mutex) QOR_THREAD_ANNOTATION(acquire_capability(mutex)) : lock_(mutex.mutex_) {}
  // A defaulted destructor could not have the annotation.
  // NOLINTNEXTLINE(modernize-use-equals-default)
  ~Lock() QOR_THREAD_ANNOTATION(release_capability()) {}
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  template <class Condition>
  void wait(std::condition_variable& changed, Condition condition) {
    changed.wait(lock_, condition);
  }
  /// Waits for one notification; may return early without one.
  void wait(std::condition_variable& changed) { changed.wait(lock_); }
  /// Whether the condition holds.
  template <class Condition>
  bool waitUntil(std::condition_variable& changed, std::chrono::steady_clock::time_point deadline,
                 Condition condition) {
    return changed.wait_until(lock_, deadline, condition);
  }
  std::cv_status waitUntil(std::condition_variable& changed, std::chrono::steady_clock::time_point deadline) {
    return changed.wait_until(lock_, deadline);
  }

 private:
  std::unique_lock<std::mutex> lock_;
};

/// A std::timed_mutex with annotations.
class QOR_THREAD_ANNOTATION(capability("mutex")) TimedMutex {
 public:
  void lock() QOR_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  void unlock() QOR_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
  /// Waits at most that long; false if another thread still holds it.
  bool tryLockFor(std::chrono::milliseconds time) QOR_THREAD_ANNOTATION(try_acquire_capability(true)) {
    return mutex_.try_lock_for(time);
  }

 private:
  std::timed_mutex mutex_;
};

/// Holds a timed mutex during its lifetime.
class QOR_THREAD_ANNOTATION(scoped_lockable) TimedLock {
 public:
  explicit TimedLock(TimedMutex& mutex) QOR_THREAD_ANNOTATION(acquire_capability(mutex)) : mutex_(mutex) {
    mutex_.lock();
  }
  /// Adopts a mutex that the caller has locked.
  TimedLock(TimedMutex& mutex, std::adopt_lock_t /*adopt*/) QOR_REQUIRES(mutex) : mutex_(mutex) {}
  ~TimedLock() QOR_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
  TimedLock(const TimedLock&) = delete;
  TimedLock& operator=(const TimedLock&) = delete;

 private:
  TimedMutex& mutex_;
};

}  // namespace qor::base
