// What each lock guards, in the words of clang's thread-safety analysis; other compilers read nothing here. The
// analysis needs locks that are annotated themselves: those of libc++ are, when asked to be (preset device-rules).
#pragma once

#include <shared_mutex>

#if defined(__clang__)
#define ORVIX_THREAD_SAFETY(...) __attribute__((__VA_ARGS__))
#else
#define ORVIX_THREAD_SAFETY(...)
#endif
#define ORVIX_GUARDED_BY(lock) ORVIX_THREAD_SAFETY(guarded_by(lock))
#define ORVIX_REQUIRES(lock) ORVIX_THREAD_SAFETY(requires_capability(lock))
#define ORVIX_LOCKING(what) ORVIX_THREAD_SAFETY(what, no_thread_safety_analysis)

namespace orvix {

// All but this one, which is given the words here.
class ORVIX_THREAD_SAFETY(capability("mutex")) SharedMutex : private std::shared_mutex {
  public:
    void lock() ORVIX_LOCKING(acquire_capability()) { shared_mutex::lock(); }
    void unlock() ORVIX_LOCKING(release_capability()) { shared_mutex::unlock(); }
    void lock_shared() ORVIX_LOCKING(acquire_shared_capability()) { shared_mutex::lock_shared(); }
    void unlock_shared() ORVIX_LOCKING(release_shared_capability()) { shared_mutex::unlock_shared(); }
};

// std::shared_lock for one scope: the analysis does not see through that one.
class ORVIX_THREAD_SAFETY(scoped_lockable) SharedGuard {
  public:
    explicit SharedGuard(SharedMutex& guarded) ORVIX_THREAD_SAFETY(acquire_shared_capability(guarded))
        : mutex(guarded) {
        mutex.lock_shared();
    }
    ~SharedGuard() ORVIX_THREAD_SAFETY(release_capability()) { mutex.unlock_shared(); }
    SharedGuard(const SharedGuard&) = delete;

  private:
    SharedMutex& mutex;
};

}  // namespace orvix
