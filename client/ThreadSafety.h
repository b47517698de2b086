// What each lock guards, in the words of clang's thread-safety analysis; other compilers read nothing here. The
// analysis needs locks that are annotated themselves: those of libc++ are, when asked to be (preset device-rules).
#pragma once

#include <shared_mutex>

#if defined(__clang__)
#define ORVIX_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define ORVIX_THREAD_SAFETY(attribute)
#endif
#define ORVIX_GUARDED_BY(lock) ORVIX_THREAD_SAFETY(guarded_by(lock))
#define ORVIX_REQUIRES(lock) ORVIX_THREAD_SAFETY(requires_capability(lock))

namespace orvix {

#if defined(_LIBCPP_ENABLE_THREAD_SAFETY_ANNOTATIONS)
// All but this one, which is only given the words.
class ORVIX_THREAD_SAFETY(capability("mutex")) SharedMutex : private std::shared_mutex {
  public:
    void lock() __attribute__((acquire_capability(), no_thread_safety_analysis)) { shared_mutex::lock(); }
    bool try_lock() __attribute__((try_acquire_capability(true), no_thread_safety_analysis)) {
        return shared_mutex::try_lock();
    }
    void unlock() __attribute__((release_capability(), no_thread_safety_analysis)) { shared_mutex::unlock(); }
    void lock_shared() __attribute__((acquire_shared_capability(), no_thread_safety_analysis)) {
        shared_mutex::lock_shared();
    }
    void unlock_shared() __attribute__((release_shared_capability(), no_thread_safety_analysis)) {
        shared_mutex::unlock_shared();
    }
};
#else
using SharedMutex = std::shared_mutex;
#endif

// std::shared_lock for one scope: the analysis does not see through that one.
class ORVIX_THREAD_SAFETY(scoped_lockable) SharedGuard {
  public:
    explicit SharedGuard(SharedMutex& guarded) ORVIX_THREAD_SAFETY(acquire_shared_capability(guarded))
        : mutex(guarded) {
        mutex.lock_shared();
    }
    ~SharedGuard() ORVIX_THREAD_SAFETY(release_capability()) { mutex.unlock_shared(); }
    SharedGuard(const SharedGuard&) = delete;
    SharedGuard& operator=(const SharedGuard&) = delete;

  private:
    SharedMutex& mutex;
};

}  // namespace orvix
