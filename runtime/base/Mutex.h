#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// What clang's thread-safety analysis reads, in every build of ours with clang: code that touches a guarded
// member without its mutex does not compile. It sees what no test run does, the more so as sanitizers do not
// see through libzmq.
#ifdef __clang__
#define QOR_THREAD_ANNOTATION(annotation) __attribute__((annotation))
#else
#define QOR_THREAD_ANNOTATION(annotation)
#endif

/// Of a member: only touched with that mutex held, but while its object is made and destroyed.
#define QOR_GUARDED_BY(mutex) QOR_THREAD_ANNOTATION(guarded_by(mutex))
/// Of a function, a lambda included: called with that mutex held.
#define QOR_REQUIRES(mutex) QOR_THREAD_ANNOTATION(requires_capability(mutex))

namespace qor::base {

/// A std::mutex that the analysis knows.
class QOR_THREAD_ANNOTATION(capability("mutex")) Mutex {
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
