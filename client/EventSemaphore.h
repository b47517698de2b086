// Wakes the dispatch thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "aidl/ThreadSafety.h"

namespace orvix {

// In binary mode any number of releases before the next acquire is one wake-up.
class EventSemaphore {
  public:
    EventSemaphore() = default;
    EventSemaphore(const EventSemaphore&) = delete;
    EventSemaphore& operator=(const EventSemaphore&) = delete;
    // Sends a waiter away for good first: glibc does not finish destroying a condition variable that has one, and the
    // dispatch thread, which nobody stops or joins, must not come back to an object that is gone. Who comes
    // later, while the storage stays, finds it closed.
    ~EventSemaphore();

    // Any thread. In counting mode an overflow of the count ends the process.
    void release();
    // Waits for a release and takes it. Does not return when the semaphore is destroyed meanwhile.
    void acquire();

    // For tests of the counting mode.
    explicit EventSemaphore(uint64_t initialCount) : binary(false), count(initialCount) {}

  private:
    bool binary = true;
    uint64_t count ORVIX_GUARDED_BY(mutex) = 0;  // pending wake-ups
    std::mutex mutex;
    std::condition_variable_any cv;
    uint32_t waiters ORVIX_GUARDED_BY(mutex) = 0;
    bool closing ORVIX_GUARDED_BY(mutex) = false;
};

}  // namespace orvix
