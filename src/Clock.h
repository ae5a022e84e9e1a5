#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

// Annotations for clang's thread-safety analysis: code that uses a guarded member without holding its mutex
// does not compile. Other compilers ignore them.
#ifdef __clang__
#define MULTIPROCESS_THREAD_ANNOTATION(annotation) __attribute__((annotation))
#else
#define MULTIPROCESS_THREAD_ANNOTATION(annotation)
#endif

/// On a member: used only with that mutex held, except in constructors and destructors.
#define MULTIPROCESS_GUARDED_BY(mutex) MULTIPROCESS_THREAD_ANNOTATION(guarded_by(mutex))
/// On a function or a lambda: called with that mutex held.
#define MULTIPROCESS_REQUIRES(mutex) MULTIPROCESS_THREAD_ANNOTATION(requires_capability(mutex))

namespace qor::multiprocess_communication {

/// A std::mutex that the analysis knows.
class MULTIPROCESS_THREAD_ANNOTATION(capability("mutex")) Mutex {
 private:
  friend class Lock;
  std::mutex mutex_;
};

/// Holds a mutex from its construction until its destruction, or until it is unlocked.
class MULTIPROCESS_THREAD_ANNOTATION(scoped_lockable) Lock {
 public:
  explicit Lock(Mutex& mutex) MULTIPROCESS_THREAD_ANNOTATION(acquire_capability(mutex))
      : lock_(mutex.mutex_) {}
  // A defaulted destructor cannot be annotated.
  // NOLINTNEXTLINE(modernize-use-equals-default)
  ~Lock() MULTIPROCESS_THREAD_ANNOTATION(release_capability()) {}
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  void unlock() MULTIPROCESS_THREAD_ANNOTATION(release_capability()) { lock_.unlock(); }

  /// For IClock::waitUntil, which releases the mutex while it waits and holds it again when it returns.
  std::unique_lock<std::mutex>& forWaiting() { return lock_; }

 private:
  std::unique_lock<std::mutex> lock_;
};

/// The source of time for every time-out, and the waits that depend on it. The time of day can be set
/// forwards and backwards; the steady time cannot. There is one real clock. Tests bring their own, so that a
/// wait of ten seconds takes no time. Any thread.
class IClock {
 public:
  using TimePoint = std::chrono::system_clock::time_point;
  using SteadyTimePoint = std::chrono::steady_clock::time_point;

  virtual ~IClock() = default;
  virtual TimePoint now() const = 0;
  virtual SteadyTimePoint steadyNow() const = 0;
  /// Waits once on `changed` with its mutex held by `lock`: until a notification, a spurious wake-up or the
  /// deadline. True when the wait ended before the deadline.
  virtual bool waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                         TimePoint deadline) = 0;
  virtual bool waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                         SteadyTimePoint deadline) = 0;
  /// When a repeated wait that may be shorter should end: at the deadline, or up to 50 ms before it, together
  /// with the waits of other threads. Never after it.
  virtual TimePoint commonEnd(TimePoint deadline) const { return deadline; }
  virtual SteadyTimePoint commonEnd(SteadyTimePoint deadline) const { return deadline; }
};

/// The system's clock.
std::shared_ptr<IClock> SystemClock();

}  // namespace qor::multiprocess_communication
