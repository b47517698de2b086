// Wakes the dispatch thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <mutex>

#include "client/ThreadSafety.h"

namespace orvix {

// In binary mode any number of releases before the next acquire is one wake-up. Any thread. Not to be destroyed while
// somebody waits.
class EventSemaphore {
  public:
    EventSemaphore() = default;
    // For tests of the counting mode.
    explicit EventSemaphore(uint64_t initialCount) : binary(false), count(initialCount) {}

    // In counting mode an overflow of the count ends the process.
    void release() {
        const std::lock_guard lock(mutex);
        if (binary && count == 1) return;  // who waits has been woken for it
        if (__builtin_add_overflow(count, uint64_t{1}, &count)) std::abort();
        cv.notify_one();
    }
    // Waits for a release and takes it.
    void acquire() {
        const std::lock_guard lock(mutex);
        while (count == 0) cv.wait(mutex);
        --count;
    }

  private:
    bool binary = true;
    uint64_t count ORVIX_GUARDED_BY(mutex) = 0;  // pending wake-ups
    std::mutex mutex;
    std::condition_variable_any cv;
};

}  // namespace orvix
